#include "access/Grant.h"

#include <stdexcept>

namespace gateway::access {

std::vector<Right> rightsNamed(const std::vector<std::string>& names) {
    std::vector<Right> rights;
    for (const auto& name : names) {
        if (name == "use") {
            rights.push_back(Right::Use);
        } else if (name == "restart") {
            rights.push_back(Right::Restart);
        } else if (name == "create") {
            rights.push_back(Right::Create);
        } else {
            throw std::invalid_argument(R"(rights must be of "use", "restart" and "create")");
        }
    }
    return rights;
}

}  // namespace gateway::access
