#include "drv/Named.h"

#include <stdexcept>

namespace velour::drv {

Named::~Named() = default;
Labeled::~Labeled() = default;
Openable::~Openable() = default;
Closeable::~Closeable() = default;

std::string Labeled::getLabel() {
    char label[256] = {};
    GLsizei length = 0;
    drv::glGetObjectLabel(getNamespace(), name, sizeof label, &length, label);
    return std::string(label, length > 0 ? static_cast<size_t>(length) : 0);
}

void Labeled::setLabel(const char* label, int length) {
    drv::glObjectLabel(getNamespace(), name, length, label);
}

void Openable::throwExceptionIfOpen() const {
    if (isOpen()) throw std::runtime_error("This cannot be called when open.");
}

void Openable::throwExceptionIfNotOpen() const {
    if (!isOpen()) throw std::runtime_error("This can only be called when open.");
}

}  // namespace velour::drv
