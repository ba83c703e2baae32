#pragma once

// Bases of the layer's own GL objects: the GL name, its debug label, and the
// explicit open/close lifetime of the objects that have one.

#include <string>

#include "drv/gl.h"

namespace velour::drv {

class Named {
  public:
    virtual ~Named();
    // The identifier the debug-label calls want for this kind of object.
    virtual GLenum getNamespace() const = 0;
    GLuint getName() const { return name; }

  protected:
    GLuint name = 0xFFFFFFFFu;
};

class Labeled : public virtual Named {
  public:
    ~Labeled() override;
    virtual std::string getLabel();
    virtual void setLabel(const char* label, int length);
    void setLabel(const char* label) { setLabel(label, -1); }
    void setLabel(const std::string& label) {
        setLabel(label.data(), static_cast<int>(label.size()));
    }
};

class Openable {
  public:
    virtual ~Openable();
    virtual void open() = 0;
    virtual bool isOpen() const = 0;

    void throwExceptionIfOpen() const;
    void throwExceptionIfNotOpen() const;
};

class Closeable {
  public:
    virtual ~Closeable();
    virtual void close() = 0;
};

}  // namespace velour::drv
