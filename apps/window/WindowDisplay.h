#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Deinterlacer.h"
#include "Display.h"
#include "LoadGuard.h"
#include "PictureView.h"
#include "ScreenControls.h"
#include "TextOverlay.h"
#include "WindowPanels.h"

union SDL_Event;
struct SDL_Renderer;
struct SDL_Texture;
struct SDL_Window;

namespace orvplay {

// A window on the desktop, by SDL. Pictures keep their aspect ratio between black bars, unless the
// user wants another. What keys and mouse do is in ScreenControls, what lies over the picture
// because of it in WindowPanels; captions and the status lie there as TextOverlay tells. The mouse
// pointer is hidden when it rests.
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
    void showState(const ScreenState& state) override;
    void showChannels(const ChannelRows& channels) override { mControls.setChannels(channels); }
    void showBanner() override;
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
    void handle(const SDL_Event& event);
    void onButton(int button, int clicks, int x, int y);
    void onMotion();
    void doActions();
    void tell(const std::string& text);

    // False when there is no result, and nothing was drawn.
    bool showDeinterlaced(const PictureView& picture);
    bool showSecondField();
    void present(const PictureView& picture);
    bool provideTexture(const EvenCrop& area);
    void draw();
    Placement placement() const;

    std::string mTitle;
    bool mInitialised = false;
    SDL_Window* mWindow = nullptr;
    SDL_Renderer* mRenderer = nullptr;
    SDL_Texture* mTexture = nullptr;  // null until there was a picture
    int mTextureWidth = 0;
    int mTextureHeight = 0;
    bool mTextureRefused = false;  // said so once
    int mWidth = 0;
    int mHeight = 0;

    EvenCrop mArea;             // of the picture in the texture
    double mAspectRatio = 1.0;  // of the stream
    size_t mAspectChoice = 0;

    // From open() on.
    struct Overlays {
        TextRasterizer rasterizer;
        TextOverlay caption{rasterizer, TextPlace::BOTTOM};
        TextOverlay status{rasterizer, TextPlace::CORNER};
        WindowPanels panels;

        explicit Overlays(ScreenControls& controls) : panels(rasterizer, controls) {}
    };
    ScreenControls mControls;
    std::unique_ptr<Overlays> mOverlays;
    bool mQuitAsked = false;
    bool mDamaged = false;         // the screen is out of date
    int64_t mPointerHiddenNs = 0;  // when the mouse pointer is to be hidden; 0: it is

    LoadGuard mGuard;
    Deinterlacer mDeinterlacer;
    bool mDeinterlacingWanted = true;
    bool mDeinterlacing = false;
    int mProgressiveInRow = 0;
    int64_t mLastTimestampNs = 0;
    int64_t mSecondFieldDueNs = 0;  // monotonic; 0 when none waits
    double mCostMs = 0.0;           // of the picture on screen
};

}  // namespace orvplay
