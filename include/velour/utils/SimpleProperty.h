#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace velour::utils {

template <typename T>
class Property;

// What a listener receives: valid only during the call.
template <typename T>
class ChangeEvent {
  public:
    ChangeEvent(Property<T>* property, const T* oldValue, const T* newValue)
        : property(property), oldValue(oldValue), newValue(newValue) {}
    virtual ~ChangeEvent() = default;

    Property<T>* property;
    const T* oldValue;
    const T* newValue;
};

template <typename T>
class ChangeListener {
  public:
    virtual ~ChangeListener() = default;
    virtual void changed(const ChangeEvent<T>& event) = 0;
};

// The observable-value interface, for callers that hold only that.
template <typename T>
class Property {
  public:
    virtual ~Property() = default;
    virtual const T* value() const = 0;
    virtual T* value() = 0;
    virtual void setValue(const T& value) = 0;
    virtual void addListener(std::shared_ptr<ChangeListener<T>> listener) = 0;
    virtual void removeListener(const ChangeListener<T>* listener) = 0;
};

// A value that tells its listeners when it changes, after storing the new one.
template <typename T>
class SimpleProperty : public virtual Property<T> {
  public:
    SimpleProperty(void* owner, std::string name, T value)
        : owner_(owner), name_(std::move(name)), value_(value) {}

    virtual const void* owner() const { return owner_; }
    virtual void* owner() { return owner_; }
    virtual std::string name() const { return name_; }
    const T* value() const override { return &value_; }
    T* value() override { return &value_; }

    void setValue(const T& value) override {
        if (value == value_) return;
        T old = value_;
        value_ = value;
        fire(old);
    }

    void addListener(std::shared_ptr<ChangeListener<T>> listener) override {
        listeners.push_back(std::move(listener));
    }

    void removeListener(const ChangeListener<T>* listener) override {
        auto it = std::find_if(listeners.begin(), listeners.end(),
                               [listener](const auto& held) { return held.get() == listener; });
        if (it != listeners.end()) listeners.erase(it);
    }

  private:
    // A copy of the list, so that a listener may add or remove listeners.
    void fire(const T& old) {
        ChangeEvent<T> event(this, &old, &value_);
        std::vector<std::shared_ptr<ChangeListener<T>>> called = listeners;
        for (auto& listener : called) listener->changed(event);
    }

    std::vector<std::shared_ptr<ChangeListener<T>>> listeners;
    void* owner_;
    std::string name_;
    T value_;
};

}  // namespace velour::utils
