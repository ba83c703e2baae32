#pragma once

#include <string>

#include "drv/Named.h"

namespace velour::drv {

class Shader : public Labeled, public virtual Openable, public virtual Closeable {
  public:
    GLenum getNamespace() const override { return GL_SHADER; }
    void open() override;
    void close() override;
    bool isOpen() const override { return opened; }

    void setShaderType(GLenum type) { shaderType = type; }
    GLenum getShaderType() const { return shaderType; }
    void setSource(const std::string& text) { source = text; }
    const std::string& getSource() const { return source; }
    // Opens the shader if needed and compiles the source. Throws
    // std::invalid_argument with the info log and the numbered source.
    void compile();

  private:
    bool opened = false;
    GLenum shaderType = 0;
    std::string source;
};

}  // namespace velour::drv
