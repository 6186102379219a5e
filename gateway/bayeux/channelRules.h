#pragma once

/// What clients may do with which channel. Beside what channelNames.h of the message service asks for, the
/// libraries that clients use take no "." in a segment, a wildcard as the last segment only, 255 characters
/// and 16 segments at the most.
///
/// Threads: any.

#include <string_view>

namespace gateway::bayeux {

/// Where remote calls go; the type of the request follows.
inline constexpr std::string_view servicePrefix = "/service/";

bool isPortableName(std::string_view channel);
bool isPortablePattern(std::string_view pattern);

bool isMeta(std::string_view channel);
bool isService(std::string_view channel);

/// Whether events of an interpreter are asked for that is not there: this host has the one with the number 0.
bool isOfNoInterpreter(std::string_view channel);

/// Whether only services in this process may publish there.
bool isServersOwn(std::string_view channel);

}  // namespace gateway::bayeux
