#include "dispatch/errorAnswer.h"

#include "connector/json/ObjectBuilder.h"

namespace dispatch {

std::string errorJson(std::string_view text) {
    return connector::json::ObjectBuilder().add("error", text).take();
}

}  // namespace dispatch
