#include "GlSupport.h"

#include <EGL/egl.h>

#include <sstream>

#include "glapp/egl_session.h"
#include "velour/entry_points.h"

namespace velour::test {

namespace {

void* lookUp(void*, const char* name) {
    return reinterpret_cast<void*>(eglGetProcAddress(name));
}

}  // namespace

GlContext::GlContext(int width, int height)
    : session(std::make_unique<glapp::EglSession>(width, height)), width_(width), height_(height) {
    drv::initRealGL(nullptr, lookUp);
    glViewport(0, 0, width, height);
}

GlContext::~GlContext() = default;

GlState snapshot() {
    GlState state;
    // Each query under its own name (a count of values where not one); floats
    // scaled to keep six decimals.
    struct Query {
        const char* name;
        GLenum query;
        int count;
    };
#define Q(query) \
    { #query, query, 1 }
#define QN(query, count) \
    { #query, query, count }
    // clang-format off
    static const Query ENABLES[] = {
        Q(GL_BLEND), Q(GL_CULL_FACE), Q(GL_DEPTH_TEST), Q(GL_DITHER), Q(GL_POLYGON_OFFSET_FILL),
        Q(GL_PRIMITIVE_RESTART_FIXED_INDEX), Q(GL_RASTERIZER_DISCARD),
        Q(GL_SAMPLE_ALPHA_TO_COVERAGE), Q(GL_SAMPLE_COVERAGE), Q(GL_SAMPLE_MASK),
        Q(GL_SCISSOR_TEST), Q(GL_STENCIL_TEST), Q(GL_DEBUG_OUTPUT), Q(GL_DEBUG_OUTPUT_SYNCHRONOUS),
        Q(GL_SAMPLE_SHADING),
    };
    static const Query INTEGERS[] = {
        Q(GL_ACTIVE_TEXTURE), Q(GL_CURRENT_PROGRAM), Q(GL_PROGRAM_PIPELINE_BINDING),
        Q(GL_VERTEX_ARRAY_BINDING), Q(GL_ARRAY_BUFFER_BINDING), Q(GL_ELEMENT_ARRAY_BUFFER_BINDING),
        Q(GL_COPY_READ_BUFFER_BINDING), Q(GL_COPY_WRITE_BUFFER_BINDING),
        Q(GL_PIXEL_PACK_BUFFER_BINDING), Q(GL_PIXEL_UNPACK_BUFFER_BINDING),
        Q(GL_UNIFORM_BUFFER_BINDING), Q(GL_TRANSFORM_FEEDBACK_BINDING),
        Q(GL_TRANSFORM_FEEDBACK_BUFFER_BINDING), Q(GL_DRAW_INDIRECT_BUFFER_BINDING),
        Q(GL_DISPATCH_INDIRECT_BUFFER_BINDING), Q(GL_SHADER_STORAGE_BUFFER_BINDING),
        Q(GL_ATOMIC_COUNTER_BUFFER_BINDING), Q(GL_TEXTURE_BUFFER_BINDING),
        Q(GL_DRAW_FRAMEBUFFER_BINDING), Q(GL_READ_FRAMEBUFFER_BINDING), Q(GL_RENDERBUFFER_BINDING),
        Q(GL_READ_BUFFER), Q(GL_DRAW_BUFFER0), QN(GL_VIEWPORT, 4), QN(GL_SCISSOR_BOX, 4),
        Q(GL_BLEND_SRC_RGB), Q(GL_BLEND_DST_RGB), Q(GL_BLEND_SRC_ALPHA), Q(GL_BLEND_DST_ALPHA),
        Q(GL_BLEND_EQUATION_RGB), Q(GL_BLEND_EQUATION_ALPHA), Q(GL_DEPTH_FUNC), Q(GL_STENCIL_FUNC),
        Q(GL_STENCIL_REF), Q(GL_STENCIL_VALUE_MASK), Q(GL_STENCIL_WRITEMASK), Q(GL_STENCIL_FAIL),
        Q(GL_STENCIL_PASS_DEPTH_FAIL), Q(GL_STENCIL_PASS_DEPTH_PASS), Q(GL_STENCIL_BACK_FUNC),
        Q(GL_STENCIL_BACK_REF), Q(GL_STENCIL_BACK_VALUE_MASK), Q(GL_STENCIL_BACK_WRITEMASK),
        Q(GL_STENCIL_BACK_FAIL), Q(GL_STENCIL_BACK_PASS_DEPTH_FAIL),
        Q(GL_STENCIL_BACK_PASS_DEPTH_PASS), Q(GL_STENCIL_CLEAR_VALUE), Q(GL_CULL_FACE_MODE),
        Q(GL_FRONT_FACE), Q(GL_SAMPLE_COVERAGE_INVERT), Q(GL_GENERATE_MIPMAP_HINT),
        Q(GL_FRAGMENT_SHADER_DERIVATIVE_HINT), Q(GL_PACK_ALIGNMENT), Q(GL_PACK_ROW_LENGTH),
        Q(GL_PACK_SKIP_ROWS), Q(GL_PACK_SKIP_PIXELS), Q(GL_UNPACK_ALIGNMENT),
        Q(GL_UNPACK_ROW_LENGTH), Q(GL_UNPACK_IMAGE_HEIGHT), Q(GL_UNPACK_SKIP_ROWS),
        Q(GL_UNPACK_SKIP_PIXELS), Q(GL_UNPACK_SKIP_IMAGES),
    };
    static const Query FLOATS[] = {
        QN(GL_BLEND_COLOR, 4), QN(GL_DEPTH_RANGE, 2), Q(GL_DEPTH_CLEAR_VALUE), Q(GL_LINE_WIDTH),
        Q(GL_POLYGON_OFFSET_FACTOR), Q(GL_POLYGON_OFFSET_UNITS), QN(GL_COLOR_CLEAR_VALUE, 4),
        Q(GL_SAMPLE_COVERAGE_VALUE),
    };
    // clang-format on
#undef Q
#undef QN
    for (const Query& q : ENABLES)
        state.emplace_back(std::string("enabled ") + q.name,
                           std::vector<int64_t>{glIsEnabled(q.query)});
    for (const Query& q : INTEGERS) {
        std::vector<GLint64> values(static_cast<size_t>(q.count), -12345);
        glGetInteger64v(q.query, values.data());
        state.emplace_back(q.name, std::vector<int64_t>(values.begin(), values.end()));
    }
    for (const Query& q : FLOATS) {
        std::vector<GLfloat> values(static_cast<size_t>(q.count), -12345.0f);
        glGetFloatv(q.query, values.data());
        std::vector<int64_t> scaled;
        for (float v : values) scaled.push_back(static_cast<int64_t>(v * 1000000.0f));
        state.emplace_back(q.name, scaled);
    }

    GLboolean colorMask[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, colorMask);
    state.emplace_back("GL_COLOR_WRITEMASK", std::vector<int64_t>(colorMask, colorMask + 4));
    GLboolean depthMask = 0;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &depthMask);
    state.emplace_back("GL_DEPTH_WRITEMASK", std::vector<int64_t>{depthMask});

    // Every texture unit's bindings and sampler, then the active unit back.
    GLint active = 0, units = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &units);
    static const GLenum TARGET_BINDINGS[] = {GL_TEXTURE_BINDING_2D,
                                             GL_TEXTURE_BINDING_3D,
                                             GL_TEXTURE_BINDING_CUBE_MAP,
                                             GL_TEXTURE_BINDING_2D_ARRAY,
                                             GL_TEXTURE_BINDING_CUBE_MAP_ARRAY,
                                             GL_TEXTURE_BINDING_2D_MULTISAMPLE,
                                             GL_TEXTURE_BINDING_BUFFER,
                                             GL_SAMPLER_BINDING};
    for (GLint unit = 0; unit < units; ++unit) {
        glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
        std::vector<int64_t> bindings;
        for (GLenum binding : TARGET_BINDINGS) {
            GLint name = 0;
            glGetIntegerv(binding, &name);
            bindings.push_back(name);
        }
        state.emplace_back("texture unit " + std::to_string(unit), bindings);
    }
    glActiveTexture(static_cast<GLenum>(active));

    // Vertex attribute state of the bound vertex array.
    for (GLuint index = 0; index < 4; ++index) {
        std::vector<int64_t> attribute;
        for (GLenum query :
             {GL_VERTEX_ATTRIB_ARRAY_ENABLED, GL_VERTEX_ATTRIB_ARRAY_SIZE,
              GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, GL_VERTEX_ATTRIB_ARRAY_STRIDE}) {
            GLint value = 0;
            glGetVertexAttribiv(index, query, &value);
            attribute.push_back(value);
        }
        state.emplace_back("vertex attribute " + std::to_string(index), attribute);
    }

    // Last, as it clears what it reads.
    state.emplace_back("glGetError", std::vector<int64_t>{glGetError()});
    return state;
}

std::string differences(const GlState& before, const GlState& after) {
    std::ostringstream text;
    for (size_t i = 0; i < before.size() && i < after.size(); ++i) {
        if (before[i] == after[i]) continue;
        text << before[i].first << ":";
        for (auto v : before[i].second) text << " " << v;
        text << " ->";
        for (auto v : after[i].second) text << " " << v;
        text << "\n";
    }
    return text.str();
}

void setGameState(GLuint& program) {
    glEnable(GL_BLEND);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ZERO);
    glBlendEquationSeparate(GL_FUNC_ADD, GL_MAX);
    glBlendColor(0.25f, 0.5f, 0.75f, 1.0f);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_GREATER);
    glDepthMask(GL_FALSE);
    glEnable(GL_STENCIL_TEST);
    glStencilFuncSeparate(GL_FRONT, GL_EQUAL, 3, 0x0F);
    glStencilFuncSeparate(GL_BACK, GL_NOTEQUAL, 5, 0xF0);
    // Back depth-fail equal to back depth-pass: a restore makes them so.
    glStencilOpSeparate(GL_FRONT, GL_REPLACE, GL_INCR, GL_DECR);
    glStencilOpSeparate(GL_BACK, GL_INVERT, GL_INCR_WRAP, GL_INCR_WRAP);
    glStencilMaskSeparate(GL_FRONT, 0x3C);
    glStencilMaskSeparate(GL_BACK, 0xC3);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_FRONT);
    glFrontFace(GL_CW);
    glEnable(GL_SCISSOR_TEST);
    glScissor(3, 4, 50, 60);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 7);

    GLuint textures[5];
    glGenTextures(5, textures);
    for (GLenum unit = 0; unit < 4; ++unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        glBindTexture(GL_TEXTURE_2D, textures[unit]);
    }
    glBindTexture(GL_TEXTURE_CUBE_MAP, textures[4]);
    GLuint sampler = 0;
    glGenSamplers(1, &sampler);
    glBindSampler(1, sampler);
    glActiveTexture(GL_TEXTURE2);

    program = glCreateProgram();
    GLuint vertex = glCreateShader(GL_VERTEX_SHADER);
    const char* vertexSource = "#version 300 es\nvoid main(){gl_Position=vec4(0.0);}";
    glShaderSource(vertex, 1, &vertexSource, nullptr);
    glCompileShader(vertex);
    GLuint fragment = glCreateShader(GL_FRAGMENT_SHADER);
    const char* fragmentSource =
        "#version 300 es\nprecision mediump float;out vec4 c;void main(){c=vec4(1.0);}";
    glShaderSource(fragment, 1, &fragmentSource, nullptr);
    glCompileShader(fragment);
    glAttachShader(program, vertex);
    glAttachShader(program, fragment);
    glLinkProgram(program);
    glUseProgram(program);

    GLuint vertexArray = 0, buffers[3] = {};
    glGenVertexArrays(1, &vertexArray);
    glBindVertexArray(vertexArray);
    glGenBuffers(3, buffers);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[0]);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[1]);
    glBufferData(GL_ARRAY_BUFFER, 64, nullptr, GL_STATIC_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 16, nullptr);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[2]);
    GLuint renderbuffer = 0;
    glGenRenderbuffers(1, &renderbuffer);
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffer);
}

std::vector<uint8_t> picture(int width, int height) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = static_cast<uint8_t>(x * 255 / (width - 1));
            p[1] = static_cast<uint8_t>(y * 255 / (height - 1));
            p[2] = static_cast<uint8_t>((x * 7 + y * 3) & 0xFF);
            p[3] = 255;
        }
    return pixels;
}

void drawPicture(int width, int height) {
    // Through a texture and a blit, so that any framebuffer can take it.
    GLint drawFramebuffer = 0, readFramebuffer = 0, texture = 0, unpackAlignment = 0,
          unpackRowLength = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawFramebuffer);
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readFramebuffer);
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &texture);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &unpackAlignment);
    glGetIntegerv(GL_UNPACK_ROW_LENGTH, &unpackRowLength);
    const GLboolean scissor = glIsEnabled(GL_SCISSOR_TEST);
    glDisable(GL_SCISSOR_TEST);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);

    GLuint source = 0, framebuffer = 0;
    glGenTextures(1, &source);
    glBindTexture(GL_TEXTURE_2D, source);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, width, height);
    const std::vector<uint8_t> pixels = picture(width, height);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE,
                    pixels.data());
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, source, 0);
    glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &source);

    glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(readFramebuffer));
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawFramebuffer));
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(texture));
    glPixelStorei(GL_UNPACK_ALIGNMENT, unpackAlignment);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, unpackRowLength);
    if (scissor) glEnable(GL_SCISSOR_TEST);
}

std::vector<uint8_t> readPixels(int width, int height) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    GLint alignment = 0;
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glPixelStorei(GL_PACK_ALIGNMENT, alignment);
    return pixels;
}

GameFramebuffer::GameFramebuffer(int width, int height, int level) {
    GLint drawFramebuffer = 0, boundTexture = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawFramebuffer);
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &boundTexture);
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexStorage2D(GL_TEXTURE_2D, level + 1, GL_RGBA8, width << level, height << level);
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture,
                           level);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawFramebuffer));
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(boundTexture));
}

}  // namespace velour::test
