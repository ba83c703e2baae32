#include "widgets.h"

#include <cstdint>

#include "glapp/gl_program.h"
#include "labels.h"
#include "shaders.h"

namespace demo {

GLuint makeTexture(int width, int height, const std::vector<std::uint8_t>& texels, GLint filter,
                   GLint wrap, const char* label) {
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, width, height, 0, GL_RED, GL_UNSIGNED_BYTE,
                 texels.data());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
    if (label) labelObject(kLabelTexture, texture, label);
    return texture;
}

GLuint makeHudProgram(const char* name, const char* vertexSource, int unit, const char* label,
                      GLint* viewportLocation) {
    const GLuint program = glapp::buildProgram(name, vertexSource, shaders::kHudFragment);
    *viewportLocation = glapp::uniformLocation(program, "uViewport");
    glUseProgram(program);
    glUniform1i(glapp::uniformLocation(program, "uAtlas"), unit);
    labelObject(kLabelProgram, program, label);
    return program;
}

std::vector<std::uint8_t> panelTexels(std::uint8_t face) {
    std::vector<std::uint8_t> texels(64, face);
    for (int i = 0; i < 8; ++i) {
        texels[static_cast<std::size_t>(i)] = texels[static_cast<std::size_t>(56 + i)] = 255;
        texels[static_cast<std::size_t>(8 * i)] = texels[static_cast<std::size_t>(8 * i + 7)] = 255;
    }
    return texels;
}

void drawWidgets(const std::vector<Widget>& widgets, const std::uint16_t* indexBase) {
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE);
    for (const Widget& w : widgets) {
        glBindTexture(GL_TEXTURE_2D, w.texture);
        // With an element buffer bound the "pointer" is a byte offset into it.
        const auto first =
            reinterpret_cast<std::uintptr_t>(indexBase) + w.firstIndex * sizeof(std::uint16_t);
        glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(w.indexCount), GL_UNSIGNED_SHORT,
                       reinterpret_cast<const void*>(first));
    }
    glDisable(GL_BLEND);
}

}  // namespace demo
