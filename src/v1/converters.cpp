#include "v1/converters.h"

#include <stdexcept>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include "event_json_converter/EventToJsonConverter.h"
#include "foundation/cppmicroservices/framework.h"

namespace connector::interpreter::v1 {

namespace {

std::string escaped(const std::string& value) {
    std::string text;
    for (const char c : value) {
        if (std::string_view("()*\\").find(c) != std::string_view::npos) text.push_back('\\');
        text.push_back(c);
    }
    return text;
}

}  // namespace

// A service may be withdrawn between two of these calls, which shows in three ways.
std::shared_ptr<event_json_converter::EventToJsonConverter> converterFor(const std::string& tag) {
    using event_json_converter::EventToJsonConverter;
    auto context = foundation::cppmicroservices::getFramework().GetBundleContext();
    const auto references =
        context.GetServiceReferences<EventToJsonConverter>("(eventTag=" + escaped(tag) + ")");
    if (references.empty()) return nullptr;
    try {
        return context.GetService(references.front());
    } catch (const std::invalid_argument&) {
        return nullptr;
    }
}

}  // namespace connector::interpreter::v1
