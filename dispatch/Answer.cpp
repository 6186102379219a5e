#include "dispatch/Answer.h"

#include "connector/json/ObjectBuilder.h"

namespace dispatch {

std::string errorJson(std::string_view text) {
    return connector::json::ObjectBuilder().add("error", text).take();
}

Answer errorAnswer(int status, std::string_view text, int retrySeconds) {
    return {.status = status,
            .json = errorJson(text),
            .problem = std::string(text),
            .retrySeconds = retrySeconds};
}

}  // namespace dispatch
