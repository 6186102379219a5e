#include "signalNames.h"

#include <cctype>
#include <csignal>
#include <cstring>

namespace supervisor {

std::string signalName(int signal) {
    if (const char* name = ::sigabbrev_np(signal)) return std::string("SIG") + name;
    if (signal >= SIGRTMIN && signal <= SIGRTMAX) return "SIGRTMIN+" + std::to_string(signal - SIGRTMIN);
    return "signal " + std::to_string(signal);
}

std::string signalMeaning(const std::string& name) {
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        const char* description = ::sigdescr_np(signal);
        if (description == nullptr || signalName(signal) != name) continue;
        std::string text = description;
        // "Segmentation fault", but "CPU time limit exceeded", "I/O possible".
        if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1])) != 0)
            text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        return text;
    }
    return {};
}

}  // namespace supervisor
