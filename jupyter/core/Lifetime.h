#pragma once

#include <memory>
#include <utility>

namespace jupyter {

/// Makes what an object hands out do nothing after its end, where both happen on one executor.
class Lifetime {
public:
    template <class Action>
    auto guarded(Action action) const {
        return [token = std::weak_ptr<const bool>(token_), action = std::move(action)](auto&&... arguments) {
            if (!token.expired()) action(std::forward<decltype(arguments)>(arguments)...);
        };
    }

private:
    const std::shared_ptr<const bool> token_ = std::make_shared<const bool>(true);
};

}  // namespace jupyter
