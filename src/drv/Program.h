#pragma once

#include <string>
#include <vector>

#include "drv/Named.h"

namespace velour::drv {

class Shader;

class Program : public Labeled, public virtual Openable, public virtual Closeable {
  public:
    GLenum getNamespace() const override { return GL_PROGRAM; }
    void open() override;
    void close() override;
    bool isOpen() const override { return opened; }

    // Opens the program if needed, attaches, links and detaches the shaders
    // (detached even when the link fails). Throws std::invalid_argument with
    // the info log.
    void link(const std::vector<Shader*>& shaders);
    // Compiles the two sources into shaders of the layer's own, links them and
    // deletes them again, also when compiling or linking throws.
    void link(const std::string& vertexSource, const std::string& fragmentSource);
    void use();
    GLint getUniformLocation(const std::string& uniform) const;
    // Copies the values of like-named uniforms of the same type and size from
    // `other`. Both locations are asked of this program: right when the two
    // programs lay their uniforms out alike.
    void assignUniforms(const Program& other);
    GLint getActiveUniforms() const;
    GLint getActiveUniformMaxLength() const;
    static GLuint getCurrentProgram();

  private:
    bool opened = false;
};

}  // namespace velour::drv
