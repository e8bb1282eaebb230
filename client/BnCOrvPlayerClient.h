#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "StillMemory.h"

namespace orvclient {

// The object that the service reports to: takes its parcels apart and calls one operation for each.
// A parcel that is too short, or whose lengths contradict each other, is answered BAD_VALUE and
// calls nothing. The operations run on a thread of the binder pool, one at a time and in the order
// of the service.
class BnCOrvPlayerClient : public android::BBinder {
public:
    const android::String16& getInterfaceDescriptor() const override;
    // Whoever is told must not wait; but a caption asks the service for the time.
    bool isBrief(uint32_t code) const override;

protected:
    virtual void openUriComplete(int32_t result) = 0;
    virtual void startComplete(int32_t result) = 0;
    // Valid during the call; any address.
    virtual void closedCaptionText(const uint8_t* text, size_t bytes) = 0;
    virtual void onCaptureFrame(std::shared_ptr<const StillMemory> still) = 0;
    virtual void onSignalStatusChanged(uint32_t previous, uint32_t current) = 0;
    virtual void onStopComplete(int32_t result) = 0;
    virtual void onError(int32_t code) = 0;
    virtual void onBufferingBegin() = 0;
    virtual void onBufferingEnd() = 0;
    virtual void onBuffering(int32_t percent) = 0;
    virtual void onAudioSessionId(int32_t id) = 0;
    virtual void onStartVideoTask(int32_t width, int32_t height) = 0;
    virtual void onTimeUpdate(int32_t seconds) = 0;
    virtual void onEndOfContent() = 0;
    virtual void onRecorderStarted(int32_t result) = 0;
    virtual void onRecorderStopped(int32_t result) = 0;
    virtual void onPaused(int32_t result) = 0;
    virtual void onResumed(int32_t result) = 0;
    virtual void onSeeked(int32_t positionMs) = 0;

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t onNumber(uint32_t code, int32_t number);
    android::status_t onPair(uint32_t code, const android::Parcel& data);
    android::status_t onEvent(uint32_t code);
    android::status_t onCaption(const android::Parcel& data);
    android::status_t onStill(const android::Parcel& data);
};

}  // namespace orvclient
