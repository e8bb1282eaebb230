#include "WindowDisplay.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

constexpr int64_t STATUS_NS = 2'000'000'000;
constexpr int64_t POINTER_NS = 1'000'000'000;  // for which it is seen at rest
constexpr int POLL_MS = 20;                    // how soon the user's events are looked at
constexpr int WINDOW_WIDTH = 1280;
constexpr int WINDOW_HEIGHT = 720;
constexpr int64_t USUAL_PERIOD_NS = 33'366'667;  // 30000 / 1001 pictures a second
constexpr int64_t LONGEST_PERIOD_NS = 100'000'000;

struct Aspect {
    const char* name;
    double ratio;  // 0: the stream's
};
constexpr Aspect ASPECTS[] = {{"as broadcast", 0.0}, {"4:3", 4.0 / 3.0}, {"16:9", 16.0 / 9.0}};

// Broadcasts mix both kinds; the deinterlacer is left only when no interlaced picture came for so
// many, for the step costs one picture.
constexpr int PROGRESSIVE_TO_LEAVE = 60;

bool isSet(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr && *value != '\0';
}

SDL_YUV_CONVERSION_MODE conversionFor(const PictureView& picture) {
    if (hasFullRange(picture)) {
        return SDL_YUV_CONVERSION_JPEG;  // the only one of full range
    }
    return colourMatrixOf(picture) == ColourMatrix::BT601 ? SDL_YUV_CONVERSION_BT601
                                                          : SDL_YUV_CONVERSION_BT709;
}

double aspectRatioOf(const PictureView& picture, const EvenCrop& area) {
    const auto& input = picture.input;
    double ratio = static_cast<double>(area.cropWidth()) / area.cropHeight();
    if (input.sampleAspectWidth != 0 && input.sampleAspectHeight != 0) {
        ratio *= static_cast<double>(input.sampleAspectWidth) / input.sampleAspectHeight;
    }
    return ratio;
}

// Adds the time that a scope took.
class CostTimer {
public:
    explicit CostTimer(double& sumMs) : mSumMs(sumMs) {}
    ~CostTimer() { mSumMs += static_cast<double>(monotonicNs() - mStartNs) * 1e-6; }
    CostTimer(const CostTimer&) = delete;
    CostTimer& operator=(const CostTimer&) = delete;

private:
    double& mSumMs;
    const int64_t mStartNs = monotonicNs();
};

}  // namespace

WindowDisplay::WindowDisplay(std::string title, Deinterlacing best)
    : mTitle(std::move(title)),
      mGuard(static_cast<int>(best)),
      mDeinterlacer(best == Deinterlacing::PER_FIELD ? Deinterlacer::Rate::FIELD
                                                     : Deinterlacer::Rate::FRAME) {}

WindowDisplay::~WindowDisplay() {
    destroyWindow();
    if (mInitialised) {
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
    }
}

bool WindowDisplay::reachDisplay(std::string* error) {
    if (!isSet("SDL_VIDEODRIVER")) {
        if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) {
            *error = "there is no display";
            return false;
        }
        // Left to itself, SDL would draw into nothing where the display does not answer.
        const char* drivers = !isSet("WAYLAND_DISPLAY") ? "x11"
                              : isSet("DISPLAY")        ? "x11,wayland"
                                                        : "wayland";
        SDL_SetHint(SDL_HINT_VIDEODRIVER, drivers);
    }
    const bool reached = SDL_InitSubSystem(SDL_INIT_VIDEO) == 0;
    *error = reached ? "" : SDL_GetError();
    return reached;
}

const char* WindowDisplay::findDisplay(std::string* error) {
    if (!reachDisplay(error)) {
        return nullptr;
    }
    // The name is a constant of the library.
    const char* const driver = SDL_GetCurrentVideoDriver();
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    return driver != nullptr ? driver : "SDL";
}

bool WindowDisplay::open() {
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");  // an interrupt ends the program, not the window
    SDL_SetHint(SDL_HINT_APP_NAME, "OrvPlayer");
    // Without a graphics card, pixels go to the display directly and not through OpenGL.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    SDL_SetHint(SDL_HINT_VIDEO_X11_NET_WM_BYPASS_COMPOSITOR, "0");

    std::string error;
    mInitialised = reachDisplay(&error);
    bool opened = mInitialised && createWindow(true);
    if (mInitialised && (!opened || drawsWithProcessor())) {
        destroyWindow();
        opened = createWindow(false);
    }
    if (!opened) {
        fprintf(stderr, "orvplay: no window can be opened (%s); use --headless\n",
                mInitialised ? SDL_GetError() : error.c_str());
        return false;
    }
    SDL_ShowWindow(mWindow);
    mOverlays = std::make_unique<Overlays>(mControls);
    updateSize();
    mPointerHiddenNs = monotonicNs() + POINTER_NS;
    draw();
    return true;
}

bool WindowDisplay::createWindow(bool accelerated) {
    int width = WINDOW_WIDTH;
    int height = WINDOW_HEIGHT;
    SDL_Rect usable;
    if (SDL_GetDisplayUsableBounds(0, &usable) == 0 && (usable.w < width || usable.h < height)) {
        width = std::min(usable.w, usable.h * 16 / 9);
        height = width * 9 / 16;
    }
    mWindow = SDL_CreateWindow(mTitle.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                               width, height,
                               SDL_WINDOW_RESIZABLE | SDL_WINDOW_HIDDEN | SDL_WINDOW_ALLOW_HIGHDPI);
    if (mWindow == nullptr) {
        return false;
    }
    // Not bound to the display's refresh: the player's clock says when pictures come, and a wait
    // here would hold up the next.
    mRenderer = SDL_CreateRenderer(mWindow, -1,
                                   accelerated ? SDL_RENDERER_ACCELERATED : SDL_RENDERER_SOFTWARE);
    return mRenderer != nullptr;
}

void WindowDisplay::destroyWindow() {
    mOverlays = nullptr;
    if (mTexture != nullptr) {
        SDL_DestroyTexture(mTexture);
        mTexture = nullptr;
    }
    if (mRenderer != nullptr) {
        SDL_DestroyRenderer(mRenderer);
        mRenderer = nullptr;
    }
    if (mWindow != nullptr) {
        SDL_DestroyWindow(mWindow);
        mWindow = nullptr;
    }
}

// An OpenGL without a graphics card behind it takes four times the processor time of SDL's own
// drawing.
bool WindowDisplay::drawsWithProcessor() const {
    using GetString = const unsigned char* (*)(unsigned);
    constexpr unsigned GL_RENDERER_NAME = 0x1F01;  // GL_RENDERER
    SDL_RendererInfo info;
    if (SDL_GetRendererInfo(mRenderer, &info) != 0 || strncmp(info.name, "opengl", 6) != 0) {
        return false;
    }
    const auto getString = reinterpret_cast<GetString>(SDL_GL_GetProcAddress("glGetString"));
    const auto* name = getString != nullptr ? getString(GL_RENDERER_NAME) : nullptr;
    if (name == nullptr) {
        return false;
    }
    const std::string renderer(reinterpret_cast<const char*>(name));
    return renderer.find("llvmpipe") != std::string::npos ||
           renderer.find("softpipe") != std::string::npos ||
           renderer.find("Software Rasterizer") != std::string::npos;
}

void WindowDisplay::updateSize() {
    SDL_GetRendererOutputSize(mRenderer, &mWidth, &mHeight);
}

// The title follows what plays.
void WindowDisplay::showState(const ScreenState& state) {
    const std::string title = state.name + " - OrvPlayer";
    if (!state.name.empty() && title != mTitle) {
        mTitle = title;
        SDL_SetWindowTitle(mWindow, mTitle.c_str());
    }
    mControls.setState(state);
}

void WindowDisplay::toggleFullScreen() {
    const bool isFull = (SDL_GetWindowFlags(mWindow) & SDL_WINDOW_FULLSCREEN_DESKTOP) != 0;
    SDL_SetWindowFullscreen(mWindow, isFull ? 0 : SDL_WINDOW_FULLSCREEN_DESKTOP);
}

std::vector<UserRequest> WindowDisplay::handleEvents() {
    SDL_Event event;
    SDL_PumpEvents();
    while (SDL_PeepEvents(&event, 1, SDL_GETEVENT, SDL_FIRSTEVENT, SDL_LASTEVENT) == 1) {
        handle(event);
    }
    doActions();
    const int64_t nowNs = monotonicNs();
    if (mPointerHiddenNs != 0 && nowNs >= mPointerHiddenNs) {
        mPointerHiddenNs = 0;
        SDL_ShowCursor(SDL_DISABLE);
    }
    bool damaged = std::exchange(mDamaged, false);
    if (damaged) {
        updateSize();
    }
    for (TextOverlay* overlay : {&mOverlays->caption, &mOverlays->status}) {
        overlay->expire(nowNs);
        damaged |= overlay->takeChanged();
    }
    damaged |= mOverlays->panels.look(mWidth, mHeight, nowNs);
    const bool fieldIsDue = mSecondFieldDueNs != 0 && nowNs >= mSecondFieldDueNs;
    if (!(fieldIsDue && showSecondField()) && damaged) {
        draw();
    }
    std::vector<UserRequest> requests = mControls.takeRequests();
    if (std::exchange(mQuitAsked, false)) {
        requests.push_back({Request::QUIT});
    }
    return requests;
}

void WindowDisplay::handle(const SDL_Event& event) {
    const int64_t nowNs = monotonicNs();
    switch (event.type) {
        case SDL_QUIT:
            mQuitAsked = true;
            break;
        case SDL_WINDOWEVENT:
            mDamaged |= event.window.event == SDL_WINDOWEVENT_EXPOSED ||
                        event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED;
            break;
        case SDL_KEYDOWN:
            mControls.onKey(event.key.keysym.sym, (event.key.keysym.mod & KMOD_SHIFT) != 0,
                            event.key.repeat != 0, nowNs);
            break;
        case SDL_KEYUP:
            mControls.onKeyUp();
            break;
        case SDL_TEXTINPUT:
            mControls.onText(event.text.text, nowNs);
            break;
        case SDL_MOUSEWHEEL:
            mControls.onWheel(event.wheel.y, nowNs);
            break;
        case SDL_MOUSEBUTTONDOWN:
            onButton(event.button.button, event.button.clicks, event.button.x, event.button.y);
            break;
        case SDL_MOUSEMOTION:
            onMotion();
            break;
        default:
            break;
    }
}

// The mouse counts in points of the desktop, of which a window may have fewer than pixels.
void WindowDisplay::onButton(int button, int clicks, int x, int y) {
    int pointsWide = 0;
    int pointsHigh = 0;
    SDL_GetWindowSize(mWindow, &pointsWide, &pointsHigh);
    const int64_t nowNs = monotonicNs();
    if (button == SDL_BUTTON_RIGHT) {
        mControls.onSecondaryClick();
    } else if (button == SDL_BUTTON_LEFT && pointsWide > 0 && pointsHigh > 0 &&
               !mOverlays->panels.click(x * mWidth / pointsWide, y * mHeight / pointsHigh, nowNs) &&
               clicks == 2) {
        toggleFullScreen();
    }
}

void WindowDisplay::onMotion() {
    const int64_t nowNs = monotonicNs();
    if (std::exchange(mPointerHiddenNs, nowNs + POINTER_NS) == 0) {
        SDL_ShowCursor(SDL_ENABLE);
    }
    mControls.onMotion(nowNs);
}

void WindowDisplay::doActions() {
    using Action = ScreenControls::Action;
    for (const Action action : mControls.takeActions()) {
        const bool isFull = (SDL_GetWindowFlags(mWindow) & SDL_WINDOW_FULLSCREEN_DESKTOP) != 0;
        if (action == Action::FULL_SCREEN || (action == Action::LEAVE_FULL_SCREEN && isFull)) {
            toggleFullScreen();
        } else if (action == Action::ASPECT) {
            mAspectChoice = (mAspectChoice + 1) % std::size(ASPECTS);
            tell(std::string("aspect ratio: ") + ASPECTS[mAspectChoice].name);
        } else if (action == Action::DEINTERLACING) {
            mDeinterlacingWanted = !mDeinterlacingWanted;
            tell(mDeinterlacingWanted ? "deinterlacing: on" : "deinterlacing: off");
        }
    }
}

void WindowDisplay::tell(const std::string& text) {
    mOverlays->status.setText(text, monotonicNs() + STATUS_NS);
}

void WindowDisplay::showBanner() {
    mControls.showBanner(monotonicNs());
}

int WindowDisplay::waitMs() const {
    if (mSecondFieldDueNs == 0) {
        return POLL_MS;
    }
    // Rounded up: too early would mean to be called again for the rest of a millisecond.
    const int64_t leftNs = std::max<int64_t>(mSecondFieldDueNs - monotonicNs(), 0);
    return static_cast<int>(std::min<int64_t>((leftNs + 999'999) / 1'000'000, POLL_MS));
}

void WindowDisplay::show(const orvhost::AcquiredBuffer& picture) {
    const LockedPicture locked(picture);
    if (!locked.isValid() || mRenderer == nullptr) {
        return;
    }
    int64_t periodNs = picture.input.timestamp - mLastTimestampNs;
    if (periodNs <= 0 || periodNs > LONGEST_PERIOD_NS) {
        periodNs = USUAL_PERIOD_NS;
    }
    mLastTimestampNs = picture.input.timestamp;
    mGuard.onPicture(mCostMs, static_cast<double>(periodNs) * 1e-6);
    mCostMs = 0.0;
    const CostTimer timer(mCostMs);

    const int64_t startNs = monotonicNs();
    mSecondFieldDueNs = 0;
    mProgressiveInRow = picture.input.interlaced ? 0 : mProgressiveInRow + 1;
    const auto level = static_cast<Deinterlacing>(mGuard.level());
    const bool wanted =
        level != Deinterlacing::NONE && mDeinterlacingWanted &&
        (picture.input.interlaced || (mDeinterlacing && mProgressiveInRow < PROGRESSIVE_TO_LEAVE));
    if (!wanted && mDeinterlacing) {
        mDeinterlacer.reset();
    }
    mDeinterlacing = wanted;
    if (!wanted || !showDeinterlaced(locked.view())) {
        present(locked.view());
        return;
    }
    if (level == Deinterlacing::PER_FIELD) {
        mSecondFieldDueNs = startNs + periodNs / 2;
    }
}

// Seen with the next picture, or when the user's events are handled, whichever comes first.
void WindowDisplay::showCaption(const std::string& utf8) {
    if (mOverlays != nullptr) {
        mOverlays->caption.setText(utf8, monotonicNs() + TextOverlay::LONGEST_CAPTION_NS);
    }
}

void WindowDisplay::showStatus(const std::string& utf8, bool stays) {
    if (mOverlays != nullptr) {
        mOverlays->status.setText(utf8, stays ? TextOverlay::FOR_EVER : monotonicNs() + STATUS_NS);
    }
}

bool WindowDisplay::showDeinterlaced(const PictureView& picture) {
    const bool perField = mGuard.level() == static_cast<int>(Deinterlacing::PER_FIELD);
    mDeinterlacer.setRate(perField ? Deinterlacer::Rate::FIELD : Deinterlacer::Rate::FRAME);
    if (!mDeinterlacer.push(picture)) {
        return false;
    }
    // A second field in front of it has missed its time.
    PictureView result;
    Deinterlacer::Result kind = Deinterlacer::Result::NONE;
    do {
        kind = mDeinterlacer.pull(&result);
    } while (kind == Deinterlacer::Result::SECOND_FIELD);
    if (kind == Deinterlacer::Result::NONE) {
        return false;
    }
    present(result);
    return true;
}

bool WindowDisplay::showSecondField() {
    const CostTimer timer(mCostMs);
    mSecondFieldDueNs = 0;
    PictureView result;
    if (mDeinterlacer.pull(&result) != Deinterlacer::Result::SECOND_FIELD) {
        return false;
    }
    present(result);
    return true;
}

void WindowDisplay::present(const PictureView& picture) {
    EvenCrop area = evenCropOf(picture);
    if (!provideTexture(area)) {
        return;
    }
    SDL_SetYUVConversionMode(conversionFor(picture));
    const uint8_t* luma =
        picture.luma + static_cast<ptrdiff_t>(area.y) * picture.lumaStride + area.x;
    const uint8_t* chroma =
        picture.chroma + static_cast<ptrdiff_t>(area.y / 2) * picture.chromaStride + area.x;
    SDL_UpdateNVTexture(mTexture, nullptr, luma, picture.lumaStride, chroma, picture.chromaStride);
    mArea = area;
    mAspectRatio = aspectRatioOf(picture, area);
    draw();
}

bool WindowDisplay::provideTexture(const EvenCrop& area) {
    if (area.width == mTextureWidth && area.height == mTextureHeight) {
        return mTexture != nullptr;
    }
    if (mTexture != nullptr) {
        SDL_DestroyTexture(mTexture);
    }
    mTextureWidth = area.width;
    mTextureHeight = area.height;
    mTexture = SDL_CreateTexture(mRenderer, SDL_PIXELFORMAT_NV12, SDL_TEXTUREACCESS_STREAMING,
                                 area.width, area.height);
    if (mTexture == nullptr) {
        if (!std::exchange(mTextureRefused, true)) {
            fprintf(stderr, "orvplay: pictures of %d x %d cannot be shown (%s); use --headless\n",
                    area.width, area.height, SDL_GetError());
        }
        return false;
    }
    SDL_SetTextureScaleMode(mTexture, SDL_ScaleModeLinear);
    return true;
}

WindowDisplay::Placement WindowDisplay::placement() const {
    const double chosen = ASPECTS[mAspectChoice].ratio;
    const double ratio = chosen > 0.0 ? chosen : mAspectRatio;
    Placement place;
    place.width = mWidth;
    place.height = static_cast<int>(std::lround(mWidth / ratio));
    if (place.height > mHeight) {
        place.height = mHeight;
        place.width = static_cast<int>(std::lround(mHeight * ratio));
    }
    place.width = std::clamp(place.width, 1, std::max(mWidth, 1));
    place.height = std::clamp(place.height, 1, std::max(mHeight, 1));
    place.x = (mWidth - place.width) / 2;
    place.y = (mHeight - place.height) / 2;
    return place;
}

void WindowDisplay::draw() {
    SDL_SetRenderDrawColor(mRenderer, 0, 0, 0, SDL_ALPHA_OPAQUE);
    SDL_RenderClear(mRenderer);
    const Placement place = placement();
    const SDL_Rect to{place.x, place.y, place.width, place.height};
    if (mTexture != nullptr) {
        const SDL_Rect from{mArea.insetX, mArea.insetY, mArea.cropWidth(), mArea.cropHeight()};
        SDL_RenderCopy(mRenderer, mTexture, &from, &to);
    }
    mOverlays->caption.draw(mRenderer, to, mOverlays->panels.captionsBottom(mHeight));
    mOverlays->status.draw(mRenderer, to, mHeight);
    mOverlays->panels.draw(mRenderer, mWidth, mHeight);
    SDL_RenderPresent(mRenderer);
}

}  // namespace orvplay
