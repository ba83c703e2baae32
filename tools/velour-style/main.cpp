// velour-style: draws a picture, lets the layer's style manager apply one
// style of an effect library to it, by the copy or the fetch path, and
// writes the result: the viewer for people who write styles, and the maker
// of the tests' and the README's pictures.

#include <EGL/egl.h>
#include <GLES3/gl32.h>
#include <png.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "ctrl/PropertyConfig.h"
#include "glapp/effect_library.h"
#include "glapp/egl_session.h"
#include "glapp/gl_program.h"
#include "glapp/options.h"
#include "screenshot.h"
#include "velour/entry_points.h"
#include "velour/styles/StyleManager.h"

namespace {

using glapp::Failure;
using glapp::UsageError;

const char USAGE[] =
    "usage: velour-style --style NAME (--input PNG | --demo) --output PNG [options]\n"
    "\n"
    "Draws a picture into a headless OpenGL ES surface (Mesa), lets the layer's\n"
    "style manager draw one style of an effect library over it, as it does in a\n"
    "game's frame, and writes the result as a PNG.\n"
    "\n"
    "  --style NAME       the style: color_invert, cel_shading, hdr, old_movie,\n"
    "                     night_vision, pixelize, gamma_correction, edge_detection\n"
    "                     for libtessel.so; \"null\" draws no style\n"
    "  --input PNG        the picture to draw (RGB or RGBA PNG)\n"
    "  --demo             a frame of the demo game instead: frame 60 of\n"
    "                     velour-demo --size WxH (see --size)\n"
    "  --output PNG       where to write the result\n"
    "  --path copy|fetch  how the style reads the frame: copy it to a texture first\n"
    "                     (the driver's framebuffer-fetch extensions are hidden from\n"
    "                     the layer), or read it with GL_EXT_shader_framebuffer_fetch\n"
    "                     (default fetch)\n"
    "  --mode MODE        full, left_half or right_half: the half that gets the\n"
    "                     style, with the divider (default full)\n"
    "  --time SECONDS     the time that moving styles see (default 1); sets\n"
    "                     TESSEL_FIXED_TIME for the effect library\n"
    "  --library PATH     the effect library (default: libtessel.so of the sysroot)\n"
    "  --sysroot DIR      the device's files: filter configuration, library\n"
    "                     (default: %s)\n"
    "  --size WxH         with --demo: the frame's size (default 480x270)\n"
    "  --help             this text\n"
    "\n"
    "example: velour-style --demo --style hdr --path copy --mode left_half --output hdr.png\n"
    "Exits 0 on success, 1 on a failure (the compiler's message for a style that\n"
    "does not build), 2 on a bad command line.\n";

struct Options {
    std::string style, input, output, library;
    std::string sysroot = VELOUR_DEFAULT_SYSROOT;
    bool demo = false, fetch = true;
    std::string mode = "full";
    std::string time = "1";
    int width = 480, height = 270;
};

Options parse(int argc, char** argv) {
    Options o;
    glapp::Arguments args(argc, argv);
    while (args.next()) {
        const std::string& arg = args.option();
        if (arg == "--style") {
            o.style = args.value();
        } else if (arg == "--input") {
            o.input = args.value();
        } else if (arg == "--demo") {
            o.demo = true;
        } else if (arg == "--output") {
            o.output = args.value();
        } else if (arg == "--path") {
            const std::string path = args.value();
            if (path != "copy" && path != "fetch") throw UsageError("--path is copy or fetch");
            o.fetch = path == "fetch";
        } else if (arg == "--mode") {
            o.mode = args.value();
            if (o.mode != "full" && o.mode != "left_half" && o.mode != "right_half")
                throw UsageError("--mode is full, left_half or right_half");
        } else if (arg == "--time") {
            o.time = args.value();
            char* end = nullptr;
            if (std::strtof(o.time.c_str(), &end) < 0.0f || *end != '\0')
                throw UsageError("--time wants seconds, 0 or more");
        } else if (arg == "--library") {
            o.library = args.value();
        } else if (arg == "--sysroot") {
            o.sysroot = args.value();
        } else if (arg == "--size") {
            glapp::parseSize(arg, args.value(), 32, 4096, &o.width, &o.height);
        } else {
            throw UsageError("unknown option " + arg);
        }
    }
    if (args.helpAsked()) {
        std::printf(USAGE, VELOUR_DEFAULT_SYSROOT);
        std::exit(0);
    }
    if (o.style.empty()) throw UsageError("--style is missing");
    if (o.output.empty()) throw UsageError("--output is missing");
    if (o.input.empty() == !o.demo) throw UsageError("give one of --input and --demo");
    if (o.library.empty()) o.library = o.sysroot + "/odm/lib/libtessel.so";
    return o;
}

struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgba;  // rows bottom-up, as GL has them
};

Picture readPng(const std::string& path) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str()))
        throw Failure(path + ": " + image.message);
    image.format = PNG_FORMAT_RGBA;
    Picture picture{static_cast<int>(image.width), static_cast<int>(image.height), {}};
    picture.rgba.resize(PNG_IMAGE_SIZE(image));
    // A negative stride stores the rows bottom-up.
    const png_int_32 stride = -static_cast<png_int_32>(PNG_IMAGE_ROW_STRIDE(image));
    if (!png_image_finish_read(&image, nullptr, picture.rgba.data(), stride, nullptr)) {
        png_image_free(&image);
        throw Failure(path + ": " + image.message);
    }
    if (picture.width > 4096 || picture.height > 4096) throw Failure(path + ": larger than 4096");
    return picture;
}

// A frame of the demo game, through its own screenshot option.
Picture demoFrame(const Options& o) {
    char folder[] = "/tmp/velour-style-XXXXXX";
    if (!mkdtemp(folder)) throw Failure("cannot make a temporary folder");
    const std::string size = std::to_string(o.width) + "x" + std::to_string(o.height);
    const pid_t pid = fork();
    if (pid == 0) {
        // Its summary line is not ours to print.
        if (FILE* quiet = std::freopen("/dev/null", "w", stdout)) (void)quiet;
        execl(VELOUR_DEMO, VELOUR_DEMO, "--frames", "60", "--shot-every", "60", "--size",
              size.c_str(), "--screenshots", folder, "--quiet", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = -1;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0)
        throw Failure(std::string("running ") + VELOUR_DEMO + " failed");
    Picture picture = readPng(std::string(folder) + "/frame-00060.png");
    std::filesystem::remove_all(folder);
    return picture;
}

// The picture into the default framebuffer, as a game would have drawn it.
void drawPicture(const Picture& picture) {
    GLuint texture = 0, framebuffer = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, picture.width, picture.height);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, picture.width, picture.height, GL_RGBA,
                    GL_UNSIGNED_BYTE, picture.rgba.data());
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    glBlitFramebuffer(0, 0, picture.width, picture.height, 0, 0, picture.width, picture.height,
                      GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &texture);
    glViewport(0, 0, picture.width, picture.height);
    glapp::checkGl("drawing the picture");
}

int run(const Options& o) {
    // Before anything of the layer reads a device path or the time.
    setenv("VELOUR_SYSROOT", o.sysroot.c_str(), 1);
    setenv("TESSEL_FIXED_TIME", o.time.c_str(), 1);

    const Picture picture = o.demo ? demoFrame(o) : readPng(o.input);
    glapp::EglSession session(picture.width, picture.height);
    // The copy path on a driver with fetch: the layer must not see it.
    glapp::hideFramebufferFetch(!o.fetch);
    velour::drv::initRealGL(nullptr, glapp::lookUpDriver);
    if (o.fetch && !std::strstr(reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS)),
                                "GL_EXT_shader_framebuffer_fetch"))
        throw Failure("the driver has no GL_EXT_shader_framebuffer_fetch; use --path copy");
    drawPicture(picture);

    std::string error;
    const auto initialize =
        glapp::effectInitializer<velour::styles::StyleManager>(o.library, &error);
    if (!initialize) throw Failure(error);

    velour::styles::StyleManager manager;
    initialize(&manager);
    manager.setRenderMode(velour::styles::toRenderMode(o.mode));
    // As the game service would choose the effect.
    velour::ctrl::PropertyConfig::getInstance().setEffectFromHearth(o.style);
    manager.render();
    glapp::checkGl("drawing the style");

    std::vector<std::uint8_t> result(picture.rgba.size());
    glReadPixels(0, 0, picture.width, picture.height, GL_RGBA, GL_UNSIGNED_BYTE, result.data());
    if (!demo::writePngFromGl(o.output, picture.width, picture.height, result, &error))
        throw Failure(error);
    std::printf("%s: %s by the %s path, %s, %dx%d\n", o.output.c_str(), o.style.c_str(),
                o.fetch ? "fetch" : "copy", o.mode.c_str(), picture.width, picture.height);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(parse(argc, argv));
    } catch (const UsageError& e) {
        std::cerr << "velour-style: " << e.what() << " (see --help)\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "velour-style: " << e.what() << "\n";
        return 1;
    }
}
