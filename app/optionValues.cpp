#include "optionValues.h"

#include <charconv>
#include <cstdlib>
#include <system_error>

#include "foundation/log/diagnostic_logger.h"
#include "text.h"

namespace app {

std::string nameOf(const std::string& option, const std::string& variable, const std::string& value) {
    const char* const given = variable.empty() ? nullptr : std::getenv(variable.c_str());
    return given != nullptr && given == value ? variable : option;
}

std::int64_t integerOf(const std::string& option, const std::string& variable, const std::string& text,
                       std::int64_t least, std::int64_t most) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc() && end == text.data() + text.size() && value >= least && value <= most)
        return value;
    throw CLI::ValidationError(nameOf(option, variable, text) + " must be an integer between " +
                               std::to_string(least) + " and " + std::to_string(most));
}

void requireLogLevel(const std::string& what, const std::string& level) {
    try {
        foundation::log::severityFromName(level);
    } catch (const std::invalid_argument&) {
        throw InputError(what + " must be debug, info, warning or error");
    }
}

}  // namespace app
