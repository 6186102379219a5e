#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::msg_svc::eventmgr {

/// What kind of event an event is: its registered type name, and the user tags that it carries.
class TypeInformation {
public:
    TypeInformation(std::u16string name, std::vector<std::u16string> userTags = {})
        : name_(std::move(name)), userTags_(std::move(userTags)) {}

    const std::u16string& name() const { return name_; }
    const std::vector<std::u16string>& getUserTags() const { return userTags_; }
    bool equals(const TypeInformation& other) const { return name_ == other.name_; }

private:
    std::u16string name_;
    std::vector<std::u16string> userTags_;
};

/// The root of every event of the interpreter. A concrete event names its type in a constant `typeName`.
class BaseEvent {
public:
    static constexpr const char16_t* typeName = u"foundation::msg_svc::eventmgr::BaseEvent";

    explicit BaseEvent(TypeInformation type) : type_(std::move(type)) {}
    virtual ~BaseEvent() = default;

    const TypeInformation& getTypeInformation() const { return type_; }
    /// Whether the event is of the named type. Every event is a BaseEvent.
    bool isKindOf(std::u16string_view name) const { return name == type_.name() || name == typeName; }
    bool operator==(const BaseEvent& other) const { return this == &other; }

protected:
    BaseEvent(const BaseEvent&) = default;
    BaseEvent& operator=(const BaseEvent&) = default;

private:
    TypeInformation type_;
};

}  // namespace foundation::msg_svc::eventmgr
