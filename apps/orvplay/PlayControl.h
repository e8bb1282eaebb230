#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "PlayParts.h"
#include "PlaySource.h"
#include "RecordingControl.h"
#include "StreamSelection.h"
#include "StreamSwitch.h"
#include "Transport.h"
#include "ZapControl.h"

namespace orvplay {

// What the user wants while it plays: by keys in the window, and by other commands, which send
// requests (see ControlSocket.h). One thread.
//
//   request                                              answer, besides "ok"
//   {"command":"record.start","name":...,"storage":...}  "number"
//   {"command":"record.stop","keep":true}                "number"
//   {"command":"play.pause"}                             -; or goes on
//   {"command":"play.seek","by":-5000}                   -; milliseconds
class PlayControl {
public:
    using Json = nlohmann::json;

    // What plays may be changed in `selection`.
    PlayControl(const PlayParts& parts, const PlaySource& source, StreamSelection& selection,
                RecordingControl& recording, ZapControl& zap, int storage);

    // Does what was asked for at the display. The status of a player that had to be made anew.
    orvclient::Status lookAtRequests();
    // Does one thing that the user asked for, from wherever. Where it fails it was said so; where
    // nothing can play any more, lookAtRequests() tells it too.
    orvclient::Status act(const UserRequest& request);
    // Serves a request of another command: its answer.
    Json serve(const Json& request);
    // To be called now and then with what came out.
    void look(const PictureOutput::Figures& figures) { mTransport.look(figures); }

    // Of what plays, called so; empty: by its channel alone. Says that it begins.
    orvclient::Status startRecording(const std::string& name, int storage);
    // Says that it ends.
    orvclient::Status stopRecording(bool keep);

    // What plays is about to be left for another channel; that one was started.
    void leaveChannel() { mTransport.leaveChannel(); }
    void enterChannel();

    // See Transport.
    orvclient::Status resume(bool isWanted) { return mTransport.resume(isWanted); }
    orvclient::Status seekTo(int64_t positionMs) { return mTransport.seekTo(positionMs); }
    void keepPosition() { mTransport.keepPosition(); }
    const Transport& transport() const { return mTransport; }

private:
    orvclient::Status nextSound();
    orvclient::Status toggleRecording();
    orvclient::Status saveStill();
    orvclient::Status toldFailure(const orvclient::Status& status);
    void tell(const std::string& line);

    const PlayParts mParts;
    const PlaySource mSource;
    const StreamSelection& mSelection;
    RecordingControl& mRecording;
    ZapControl& mZap;
    const int mStorage;
    StreamSwitch mStreams;
    Transport mTransport;
    orvclient::Status mBroken;  // why nothing plays any more
};

}  // namespace orvplay
