// A headless EGL set-up for the project's GLES programs.
#pragma once

#include <EGL/egl.h>

#include <string>

namespace glapp {

const char* eglErrorName(EGLint error);

// Display, OpenGL ES 3 context and RGBA8888 pbuffer of the given size,
// current on this thread while alive. Throws a Failure naming the EGL call
// that failed.
class EglSession {
  public:
    EglSession(int width, int height);
    ~EglSession();
    EglSession(const EglSession&) = delete;
    EglSession& operator=(const EglSession&) = delete;

    void swap();
    // "EGL <version> (<vendor>)", for a program's banner.
    std::string describe() const;

  private:
    void release();

    EGLDisplay display_ = EGL_NO_DISPLAY;
    EGLContext context_ = EGL_NO_CONTEXT;
    EGLSurface surface_ = EGL_NO_SURFACE;
};

}  // namespace glapp
