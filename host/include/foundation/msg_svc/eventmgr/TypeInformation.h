#pragma once

#include <string>
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

}  // namespace foundation::msg_svc::eventmgr
