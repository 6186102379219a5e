#include "requests/errorAnswer.h"

#include "connector/json/escape.h"

namespace gateway {

std::string errorJson(std::string_view text) { return R"({"error":)" + connector::json::quoted(text) + "}"; }

}  // namespace gateway
