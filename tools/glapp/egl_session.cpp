#include "glapp/egl_session.h"

#include <EGL/eglext.h>

#include "glapp/gl_program.h"

namespace glapp {

const char* eglErrorName(EGLint error) {
    switch (error) {
        case EGL_SUCCESS:
            return "EGL_SUCCESS";
        case EGL_NOT_INITIALIZED:
            return "EGL_NOT_INITIALIZED";
        case EGL_BAD_ACCESS:
            return "EGL_BAD_ACCESS";
        case EGL_BAD_ALLOC:
            return "EGL_BAD_ALLOC";
        case EGL_BAD_ATTRIBUTE:
            return "EGL_BAD_ATTRIBUTE";
        case EGL_BAD_CONFIG:
            return "EGL_BAD_CONFIG";
        case EGL_BAD_CONTEXT:
            return "EGL_BAD_CONTEXT";
        case EGL_BAD_CURRENT_SURFACE:
            return "EGL_BAD_CURRENT_SURFACE";
        case EGL_BAD_DISPLAY:
            return "EGL_BAD_DISPLAY";
        case EGL_BAD_MATCH:
            return "EGL_BAD_MATCH";
        case EGL_BAD_NATIVE_PIXMAP:
            return "EGL_BAD_NATIVE_PIXMAP";
        case EGL_BAD_NATIVE_WINDOW:
            return "EGL_BAD_NATIVE_WINDOW";
        case EGL_BAD_PARAMETER:
            return "EGL_BAD_PARAMETER";
        case EGL_BAD_SURFACE:
            return "EGL_BAD_SURFACE";
        case EGL_CONTEXT_LOST:
            return "EGL_CONTEXT_LOST";
        default:
            return "unknown EGL error";
    }
}

namespace {

[[noreturn]] void eglFailure(const char* call) {
    throw Failure(std::string(call) + " failed: " + eglErrorName(eglGetError()));
}

// The first exact RGBA8888 config, so that images are never dithered or
// widened differently from run to run.
EGLConfig chooseConfig(EGLDisplay display) {
    const EGLint wanted[] = {EGL_SURFACE_TYPE,
                             EGL_PBUFFER_BIT,
                             EGL_RENDERABLE_TYPE,
                             EGL_OPENGL_ES3_BIT,
                             EGL_RED_SIZE,
                             8,
                             EGL_GREEN_SIZE,
                             8,
                             EGL_BLUE_SIZE,
                             8,
                             EGL_ALPHA_SIZE,
                             8,
                             EGL_NONE};
    EGLConfig configs[64];
    EGLint count = 0;
    if (!eglChooseConfig(display, wanted, configs, 64, &count)) eglFailure("eglChooseConfig");
    for (EGLint i = 0; i < count; ++i) {
        EGLint r = 0, g = 0, b = 0, a = 0;
        eglGetConfigAttrib(display, configs[i], EGL_RED_SIZE, &r);
        eglGetConfigAttrib(display, configs[i], EGL_GREEN_SIZE, &g);
        eglGetConfigAttrib(display, configs[i], EGL_BLUE_SIZE, &b);
        eglGetConfigAttrib(display, configs[i], EGL_ALPHA_SIZE, &a);
        if (r == 8 && g == 8 && b == 8 && a == 8) return configs[i];
    }
    throw Failure("no RGBA8888 pbuffer config with OpenGL ES 3");
}

}  // namespace

EglSession::EglSession(int width, int height) {
    // Surfaceless first: it needs neither a window system nor a GPU.
    display_ = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display_ == EGL_NO_DISPLAY || !eglInitialize(display_, nullptr, nullptr)) {
        eglGetError();  // so that a failure below reports its own error
        display_ = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        if (display_ == EGL_NO_DISPLAY) eglFailure("eglGetDisplay");
        if (!eglInitialize(display_, nullptr, nullptr)) eglFailure("eglInitialize");
    }
    try {
        if (!eglBindAPI(EGL_OPENGL_ES_API)) eglFailure("eglBindAPI");
        const EGLConfig config = chooseConfig(display_);
        const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
        context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, contextAttributes);
        if (context_ == EGL_NO_CONTEXT) eglFailure("eglCreateContext");
        const EGLint surfaceAttributes[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
        surface_ = eglCreatePbufferSurface(display_, config, surfaceAttributes);
        if (surface_ == EGL_NO_SURFACE) eglFailure("eglCreatePbufferSurface");
        if (!eglMakeCurrent(display_, surface_, surface_, context_)) eglFailure("eglMakeCurrent");
    } catch (...) {
        release();  // a constructor that throws gets no destructor call
        throw;
    }
    // A pbuffer swap never waits for a display; say so anyway.
    eglSwapInterval(display_, 0);
}

EglSession::~EglSession() {
    release();
}

void EglSession::release() {
    if (display_ == EGL_NO_DISPLAY) return;
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (surface_ != EGL_NO_SURFACE) eglDestroySurface(display_, surface_);
    if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
    eglTerminate(display_);
    display_ = EGL_NO_DISPLAY;
}

void EglSession::swap() {
    if (!eglSwapBuffers(display_, surface_)) eglFailure("eglSwapBuffers");
}

std::string EglSession::describe() const {
    const char* version = eglQueryString(display_, EGL_VERSION);
    const char* vendor = eglQueryString(display_, EGL_VENDOR);
    return std::string("EGL ") + (version ? version : "?") + " (" + (vendor ? vendor : "?") + ")";
}

}  // namespace glapp
