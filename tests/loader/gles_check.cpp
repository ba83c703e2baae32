// The loader tests' GLES 2 program, reaching EGL and GLES linked, by dlopen and
// dlsym, or by eglGetProcAddress alone (GLES_CHECK_LINKED, _DLOPEN, _GPA). It
// draws a scissored triangle over a clear and prints pixels read back and where
// its functions come from. --threads N first resolves a name from N threads.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// clang-format off
#define EGL_FUNCTIONS(X)                                                                \
    X(eglGetPlatformDisplay) X(eglInitialize) X(eglBindAPI) X(eglChooseConfig)          \
    X(eglCreatePbufferSurface) X(eglCreateContext) X(eglMakeCurrent) X(eglSwapBuffers)  \
    X(eglDestroySurface) X(eglDestroyContext) X(eglTerminate) X(eglGetError)
#define GL_FUNCTIONS(X)                                                                 \
    X(glClearColor) X(glClear) X(glViewport) X(glEnable) X(glScissor) X(glCreateShader) \
    X(glShaderSource) X(glCompileShader) X(glCreateProgram) X(glAttachShader)           \
    X(glBindAttribLocation) X(glLinkProgram) X(glGetProgramiv) X(glUseProgram)          \
    X(glGenBuffers) X(glBindBuffer) X(glBufferData) X(glVertexAttribPointer)            \
    X(glEnableVertexAttribArray) X(glDrawArrays) X(glReadPixels) X(glGetString)         \
    X(glGetError)
// clang-format on

struct Api {
#define DECLARE(name) decltype(&::name) name = nullptr;
    EGL_FUNCTIONS(DECLARE)
    GL_FUNCTIONS(DECLARE)
#undef DECLARE
    PFNEGLGETPROCADDRESSPROC getProcAddress = nullptr;
};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "gles_check: %s\n", what);
    std::exit(1);
}

const char* fileOf(const void* address) {
    Dl_info info{};
    return address && dladdr(address, &info) && info.dli_fname ? info.dli_fname : "none";
}

const void* asAddress(void (*fn)()) {
    return reinterpret_cast<const void*>(fn);
}

// Where each variant takes its functions from.
#if defined(GLES_CHECK_DLOPEN)

void* egl = nullptr;
void* gles = nullptr;

#define TAKE_EGL(name) api.name = reinterpret_cast<decltype(api.name)>(dlsym(egl, #name));
#define TAKE_GL(name) api.name = reinterpret_cast<decltype(api.name)>(dlsym(gles, #name));

void openApi(Api& api) {
    egl = dlopen("libEGL.so.1", RTLD_NOW | RTLD_LOCAL);
    gles = dlopen("libGLESv2.so.2", RTLD_NOW | RTLD_LOCAL);
    if (!egl || !gles) fail(dlerror());
    // Some programs ask for the development name first.
    void* development = dlopen("libEGL.so", RTLD_NOW | RTLD_LOCAL);
    std::printf("libEGL.so %s\n", development == egl ? "same" : "other");
    api.getProcAddress =
        reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(dlsym(egl, "eglGetProcAddress"));
}

#else

#if defined(GLES_CHECK_LINKED)
#define TAKE_EGL(name) api.name = &::name;
#elif defined(GLES_CHECK_GPA)
#define TAKE_EGL(name) api.name = reinterpret_cast<decltype(api.name)>(api.getProcAddress(#name));
#else
#error "choose a variant"
#endif
#define TAKE_GL TAKE_EGL

void openApi(Api& api) {
    api.getProcAddress = &::eglGetProcAddress;
}

#endif

void loadApi(Api& api) {
    EGL_FUNCTIONS(TAKE_EGL)
    GL_FUNCTIONS(TAKE_GL)
#define CHECK(name) \
    if (!api.name) fail("no " #name);
    EGL_FUNCTIONS(CHECK)
    GL_FUNCTIONS(CHECK)
#undef CHECK
    std::printf("libEGL.so.1 %s\n", fileOf(reinterpret_cast<const void*>(api.getProcAddress)));
#ifndef GLES_CHECK_GPA
    // Through eglGetProcAddress a GLES name is the loader's answer, not a file.
    std::printf("libGLESv2.so.2 %s\n", fileOf(reinterpret_cast<const void*>(api.glClear)));
#endif
}

// Many threads ask for a first name at once: the loader must start the layer
// once and give them all the same answer.
void resolveFromThreads(const Api& api, int count) {
    std::vector<const void*> answers(static_cast<size_t>(count));
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&api, &answers, i] {
            answers[static_cast<size_t>(i)] = asAddress(api.getProcAddress("glClearColor"));
        });
    for (auto& thread : threads) thread.join();
    for (auto* answer : answers)
        if (answer != answers[0]) fail("threads got different answers");
    std::printf("threads agree\n");
}

GLuint compile(const Api& api, GLenum type, const char* source) {
    GLuint shader = api.glCreateShader(type);
    api.glShaderSource(shader, 1, &source, nullptr);
    api.glCompileShader(shader);
    return shader;
}

void render(const Api& api) {
    EGLDisplay display =
        api.eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY || !api.eglInitialize(display, nullptr, nullptr))
        fail("no surfaceless display");
    api.eglBindAPI(EGL_OPENGL_ES_API);
    // clang-format off
    const EGLint configAttributes[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT,
                                       EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
                                       EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8,
                                       EGL_ALPHA_SIZE, 8, EGL_NONE};
    // clang-format on
    EGLConfig config = nullptr;
    EGLint count = 0;
    if (!api.eglChooseConfig(display, configAttributes, &config, 1, &count) || count < 1)
        fail("no pbuffer config");
    const EGLint surfaceAttributes[] = {EGL_WIDTH, 16, EGL_HEIGHT, 16, EGL_NONE};
    EGLSurface surface = api.eglCreatePbufferSurface(display, config, surfaceAttributes);
    const EGLint contextAttributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext context = api.eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttributes);
    if (surface == EGL_NO_SURFACE || context == EGL_NO_CONTEXT) fail("no surface or context");
    if (!api.eglMakeCurrent(display, surface, surface, context)) fail("eglMakeCurrent failed");
    std::printf("renderer %s\n", reinterpret_cast<const char*>(api.glGetString(GL_RENDERER)));

    api.glViewport(0, 0, 16, 16);
    api.glClearColor(1.0f, 0.5f, 0.0f, 1.0f);
    api.glClear(GL_COLOR_BUFFER_BIT);

    GLuint program = api.glCreateProgram();
    api.glAttachShader(program, compile(api, GL_VERTEX_SHADER,
                                        "attribute vec2 p; void main() { gl_Position = "
                                        "vec4(p, 0.0, 1.0); }"));
    api.glAttachShader(program, compile(api, GL_FRAGMENT_SHADER,
                                        "precision mediump float; void main() { gl_FragColor "
                                        "= vec4(0.0, 1.0, 0.0, 1.0); }"));
    api.glBindAttribLocation(program, 0, "p");
    api.glLinkProgram(program);
    GLint linked = 0;
    api.glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (!linked) fail("the program did not link");
    api.glUseProgram(program);
    const GLfloat triangle[] = {-1.0f, -1.0f, 3.0f, -1.0f, -1.0f, 3.0f};
    GLuint buffer = 0;
    api.glGenBuffers(1, &buffer);
    api.glBindBuffer(GL_ARRAY_BUFFER, buffer);
    api.glBufferData(GL_ARRAY_BUFFER, sizeof triangle, triangle, GL_STATIC_DRAW);
    api.glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    api.glEnableVertexAttribArray(0);
    api.glEnable(GL_SCISSOR_TEST);
    api.glScissor(0, 0, 8, 16);
    api.glDrawArrays(GL_TRIANGLES, 0, 3);

    for (int x : {4, 12}) {
        unsigned char pixel[4] = {};
        api.glReadPixels(x, 8, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
        std::printf("pixel %d 8: %d %d %d %d\n", x, pixel[0], pixel[1], pixel[2], pixel[3]);
    }
    std::printf("gl error 0x%x\n", api.glGetError());
    api.eglSwapBuffers(display, surface);
    api.eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    api.eglDestroyContext(display, context);
    api.eglDestroySurface(display, surface);
    api.eglTerminate(display);
    std::printf("egl error 0x%x\n", api.eglGetError());
}

}  // namespace

int main(int argc, char** argv) {
    int threads = 0;
    for (int i = 1; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], "--threads") == 0) threads = std::atoi(argv[i + 1]);

    Api api;
    openApi(api);
    if (!api.getProcAddress) fail("no eglGetProcAddress");
    // Before any other call, so that the threads are the loader's first users.
    if (threads > 0) resolveFromThreads(api, threads);
    loadApi(api);
    for (const char* name : {"glClear", "glDrawArrays", "eglMakeCurrent", "glNotAName"})
        std::printf("eglGetProcAddress %s %s\n", name, fileOf(asAddress(api.getProcAddress(name))));
    render(api);
    return 0;
}
