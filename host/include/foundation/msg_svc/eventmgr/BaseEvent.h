#pragma once

#include <string_view>
#include <utility>

#include "foundation/msg_svc/eventmgr/TypeInformation.h"

namespace foundation::msg_svc::eventmgr {

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
