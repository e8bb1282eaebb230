#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Deinterlacer.h"
#include "Display.h"
#include "LoadGuard.h"
#include "PictureView.h"
#include "TextOverlay.h"

struct SDL_Renderer;
struct SDL_Texture;
struct SDL_Window;

namespace orvplay {

// A window on the desktop, by SDL. Pictures keep their aspect ratio between black bars; q, Esc and
// closing the window ask to quit, f switches full screen, # asks for the next sound, v for the next
// captions, space for a pause, r for a recording, and the arrow keys, held or not, to go elsewhere.
// Captions and the status lie over the picture as TextOverlay tells.
//
// Interlaced pictures are deinterlaced to one picture per field, as a television shows them. That
// takes about a third of a core for 1080 lines without a graphics card, so the window watches
// itself and goes down to one picture per frame, and then to interlaced pictures as they are,
// rather than fall behind. A deinterlaced picture is seen one frame after show().
//
// At most one window in a process. Sound is left alone, and so are the process's signals.
class WindowDisplay : public Display {
public:
    // What is done to interlaced pictures when there is time for it, dearest last.
    enum class Deinterlacing { NONE, PER_FRAME, PER_FIELD };

    explicit WindowDisplay(std::string title, Deinterlacing best = Deinterlacing::PER_FIELD);
    ~WindowDisplay() override;
    WindowDisplay(const WindowDisplay&) = delete;  // owns a window
    WindowDisplay& operator=(const WindowDisplay&) = delete;

    // Tries to reach the display as open() does, without a window: the kind of display. Null, and
    // one line in *error, when there is none.
    static const char* findDisplay(std::string* error);

    bool open() override;
    void show(const orvhost::AcquiredBuffer& picture) override;
    void showCaption(const std::string& utf8) override;
    void showStatus(const std::string& utf8, bool stays) override;
    void showState(const ScreenState& state) override { mState = state; }
    void showChannels(const ChannelRows& channels) override { mChannels = channels; }
    void showBanner() override {}
    std::vector<UserRequest> handleEvents() override;
    int waitMs() const override;
    int width() const override { return mWidth; }
    int height() const override { return mHeight; }

private:
    // Where a picture goes in the window and which part of the texture it is.
    struct Placement {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    static bool reachDisplay(std::string* error);
    bool createWindow(bool accelerated);
    void destroyWindow();
    bool drawsWithProcessor() const;
    void updateSize();
    void toggleFullScreen();
    void onKey(int key, bool isRepeated);
    void ask(Request what, int64_t value = 0) { mRequests.push_back({what, value}); }

    // False when there is no result, and nothing was drawn.
    bool showDeinterlaced(const PictureView& picture);
    bool showSecondField();
    void present(const PictureView& picture);
    bool provideTexture(const EvenCrop& area);
    void draw();
    Placement placement() const;

    const std::string mTitle;
    bool mInitialised = false;
    SDL_Window* mWindow = nullptr;
    SDL_Renderer* mRenderer = nullptr;
    SDL_Texture* mTexture = nullptr;  // null until there was a picture
    int mTextureWidth = 0;
    int mTextureHeight = 0;
    bool mTextureRefused = false;  // said so once
    int mWidth = 0;
    int mHeight = 0;

    EvenCrop mArea;  // of the picture in the texture
    double mAspectRatio = 1.0;

    // From open() on.
    struct Overlays {
        TextRasterizer rasterizer;
        TextOverlay caption{rasterizer, TextPlace::BOTTOM};
        TextOverlay status{rasterizer, TextPlace::CORNER};
    };
    std::unique_ptr<Overlays> mOverlays;
    ScreenState mState;
    ChannelRows mChannels;
    std::vector<UserRequest> mRequests;  // of the events that are being handled
    bool mHashHeld = false;              // a key that repeats asks once

    LoadGuard mGuard;
    Deinterlacer mDeinterlacer;
    bool mDeinterlacing = false;
    int mProgressiveInRow = 0;
    int64_t mLastTimestampNs = 0;
    int64_t mSecondFieldDueNs = 0;  // monotonic; 0 when none waits
    double mCostMs = 0.0;           // of the picture on screen
};

}  // namespace orvplay
