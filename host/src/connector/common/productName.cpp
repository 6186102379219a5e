#include "connector/common/productName.h"

#include <algorithm>
#include <array>

#include "capabilities/capabilities.h"

namespace connector::common {

std::string getProductNameByClientType(std::string_view clientType) {
    struct Client {
        std::string_view type;
        const char* product;
    };
    static constexpr std::array<Client, 4> clients{{
        {"browser", capabilities::onlineProductName},
        {"web", capabilities::onlineProductName},
        {"numora-web", capabilities::onlineProductName},
        {"numora-cli", "NUMORA"},
    }};
    const auto found = std::ranges::find(clients, clientType, &Client::type);
    return found == clients.end() ? std::string() : found->product;
}

}  // namespace connector::common
