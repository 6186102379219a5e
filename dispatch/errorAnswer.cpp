#include "dispatch/errorAnswer.h"

#include "connector/json/escape.h"

namespace dispatch {

std::string errorJson(std::string_view text) { return R"({"error":)" + connector::json::quoted(text) + "}"; }

}  // namespace dispatch
