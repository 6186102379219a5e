// Starts a worker that stands for a real one: like that, it has a signal sent when this process ends, and
// then kills its group. Prints the numbers of the worker and of a child of it, and lives on.

#include <iostream>

#include <unistd.h>

#include "supervisor/Supervisor.h"

constexpr const char* standIn = R"(
import ctypes, os, signal, subprocess, time
signal.signal(signal.SIGRTMIN + 2, lambda *_: os.killpg(0, signal.SIGKILL))
ctypes.CDLL(None).prctl(1, signal.SIGRTMIN + 2)
child = subprocess.Popen(["sleep", "1000"])
os.write(3, f"{os.getpid()} {child.pid}\n".encode())
time.sleep(1000)
)";

int main() {
    supervisor::Supervisor supervisor;
    supervisor.spawn({.id = "default", .program = "/usr/bin/python3", .arguments = {"-c", standIn}},
                     [](const std::shared_ptr<supervisor::Worker>& worker, const std::string&) {
                         char byte = 0;
                         while (byte != '\n')
                             if (::read(worker->mainSocket(), &byte, 1) == 1) std::cout << byte << std::flush;
                     },
                     {});
    ::pause();
}
