#pragma once

#include <utils/Thread.h>

#include "renderer/AudioRenderer.h"

namespace OrvPlayer {

// Runs render() until it fails. Joined before the renderer goes, hence the plain pointer.
class AudioRenderer::RenderThread : public android::Thread {
public:
    explicit RenderThread(AudioRenderer* renderer) : mRenderer(renderer) {}

private:
    bool threadLoop() override { return !exitPending() && mRenderer->render() == 0; }

    AudioRenderer* const mRenderer;
};

}  // namespace OrvPlayer
