#pragma once

#include <functional>
#include <memory>
#include <string>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "access/Grant.h"
#include "interpreters/Registry.h"
#include "interpreters/settings.h"
#include "jupyter/rest/NotebookSessions.h"

namespace gateway::jupyter {

/// What a client of a notebook server asks for, which has shown a token.  Owns: borrows what is of the
/// server.
struct Ask {
    HttpMethod method;
    std::string parameter;  ///< what the path names
    std::string body;
    std::string root;  ///< of this server's paths, without a slash at its end
    std::shared_ptr<const access::Grant> grant;
    /// Of the kernel that the path names, or of the interpreter whose prefix it has; null: it is for all.
    std::shared_ptr<interpreters::Desk> desk;
    interpreters::Registry& interpreters;
    NotebookSessions& sessions;
    const interpreters::CheckVenv& checkVenv;
    bool canMake;  ///< the server runs more than one interpreter

    /// Whether the client may know of an interpreter, and use it.
    bool mayUse(const interpreters::Desk& other) const {
        return (!desk || desk.get() == &other) && grant->allows(access::Right::Use, other.id());
    }
};

using Done = std::function<void(HttpReply)>;

}  // namespace gateway::jupyter
