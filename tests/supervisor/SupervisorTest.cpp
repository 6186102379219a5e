#include <array>
#include <csignal>
#include <future>
#include <optional>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "link/BlackBox.h"
#include "procfs.h"
#include "supervisor/Supervisor.h"
#include "support/threads.h"

using namespace std::chrono_literals;
using supervisor::DeathRecord;
using supervisor::Worker;
using supervisor::WorkerSpec;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

WorkerSpec shell(const std::string& script) {
    return {.id = "default", .life = 2, .program = "/bin/sh", .arguments = {"-c", script}};
}

/// What comes on the main socket until a line is complete; all of it when no process has the other end any
/// more.
std::string line(const Worker& worker) {
    std::string text;
    char byte = 0;
    pollfd ready{.fd = worker.mainSocket(), .events = POLLIN, .revents = 0};
    while (::poll(&ready, 1, 60'000) == 1) {
        if (::read(ready.fd, &byte, 1) != 1 || byte == '\n') return text;
        text += byte;
    }
    return text + " and then nothing";
}

/// Lets it go on; one that was killed does not hear it.
void tell(const Worker& worker) { [[maybe_unused]] const auto sent = ::write(worker.mainSocket(), "\n", 1); }

std::size_t count(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

bool hasChildren() { return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD; }

class SupervisorTest : public testing::Test {
protected:
    struct Life {
        std::shared_ptr<Worker> worker;
        std::string problem;
        std::future<DeathRecord> record;
    };

    SupervisorTest() {
        ::setenv("NUMORA_TOKEN", "secret", 1);
        ::setenv("NUMORA_BUNDLES", "/bundles", 1);
        ::setenv("SUPERVISOR_TEST", "inherited", 1);
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t blocked;
        ::sigfillset(&blocked);
        ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        supervisor_.emplace();
        ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    }

    Life start(const WorkerSpec& spec) {
        const auto spawned = std::make_shared<std::promise<Life>>();
        const auto ended = std::make_shared<std::promise<DeathRecord>>();
        supervisor_->spawn(
            spec,
            [=](std::shared_ptr<Worker> worker, std::string problem) {
                spawned->set_value({std::move(worker), std::move(problem), ended->get_future()});
            },
            [=](DeathRecord record) { ended->set_value(std::move(record)); });
        return spawned->get_future().get();
    }

    std::optional<supervisor::Supervisor> supervisor_;
};

}  // namespace

TEST_F(SupervisorTest, aDeathIsToldWithItsCause) {
    const auto starting = [](Worker&) {};
    const auto ready = [](Worker& worker) { worker.noteReady(); };
    const auto asked = [](Worker& worker) { worker.noteReady(), worker.expectEnd("idle"); };
    const auto killed = [](Worker& worker) {
        worker.kill("killed by a client"), worker.kill("closed the link");
    };
    static const std::string lost = " Its variables are lost; the next request starts it anew.";
    struct DeathCase {
        std::string script;  // runs when the worker was told to go on
        void (*before)(Worker&);
        std::string cause, detail, happened;
        std::string consequence = lost;
    };
    const DeathCase cases[] = {
        {"kill -SEGV $$", ready, "signal", "SIGSEGV", "has died: SIGSEGV (segmentation fault)."},
        {"kill -36 $$", ready, "signal", "SIGRTMIN+2", "has died: SIGRTMIN+2."},
        {"kill -9 $$", ready, "signal", "SIGKILL", "has died: SIGKILL (killed)."},  // no memory was short
        {"exit 3", ready, "exit status", "status 3", "has died: it exited with status 3."},
        {"exit 76", ready, "closed the link", "status 76",
         "has died: it closed its connection to the server."},
        {"exit 1", starting, "start failed", "status 1", "could not start: it exited with status 1.",
         " The next request tries it again."},
        {"sleep 99", killed, "killed by a client", "SIGKILL", "was restarted by a client.",
         " Its variables are lost."},
        {"exit 1", asked, "idle", "status 1", "was ended because it was idle."},
        {"kill -35 $$", asked, "idle", "SIGRTMIN+1",
         "was ended because it was idle."},  // no handler for a trace
        {"kill -6 $$", asked, "signal", "SIGABRT", "has died: SIGABRT (aborted)."},
    };
    for (const auto& [script, before, cause, detail, happened, consequence] : cases) {
        SCOPED_TRACE(script + ": " + cause);
        Life life = start(shell("read line <&3; " + script));
        before(*life.worker);
        tell(*life.worker);
        const DeathRecord record = life.record.get();
        EXPECT_EQ(record.cause, cause);
        EXPECT_EQ(record.detail, detail);
        EXPECT_EQ(record.sentence(), "The interpreter \"default\" " + happened + consequence);
    }
}

TEST_F(SupervisorTest, whatAWorkerLeftIsInItsRecord) {
    Life life = start(
        shell("trap 'echo new >&6' 35; echo last words; echo of libraries >&2; echo old >&6; echo up >&3;"
              "until read line <&3; do :; done; kill -SEGV $$"));
    ASSERT_EQ(line(*life.worker), "up");
    life.worker->noteReady();
    EXPECT_FALSE(life.worker->hasTrace());
    life.worker->requestTrace();
    EXPECT_TRUE(eventually([&] { return life.worker->hasTrace(); }));
    const supervisor::Descriptor box(
        ::open(("/proc/" + std::to_string(life.worker->pid()) + "/fd/5").c_str(), O_RDWR));
    links::BlackBox writer(box.get());
    writer.setRequest("connector/v1/Eval", "1-2", "crash");
    writer.addOutput("begin" + std::string(20'000, '.') + "end\xFF");
    tell(*life.worker);
    const DeathRecord record = life.record.get();
    EXPECT_EQ(record.rest, "last words\nof libraries\n");
    EXPECT_EQ(record.trace, "old\nnew\n");
    EXPECT_EQ(record.output, std::string(16384 - 4, '.') + "end\xFF");
    EXPECT_THAT(record.sentence(), HasSubstr(" (segmentation fault) while it ran connector/v1/Eval. Its"));
    EXPECT_THAT(record.json(),
                HasSubstr(R"("request":{"type":"connector/v1/Eval","uuid":"1-2","code":"crash"})"));
    EXPECT_THAT(record.brief(), MatchesRegex(R"(.*,"ended":"20[-0-9]{8}T[0-9:]{8}[.][0-9]{3}Z"})"));
}

TEST_F(SupervisorTest, aChildThatLeftTheGroupHoldsNothingUp) {
    // It has the pipes, and goes on writing until nobody reads.
    Life life =
        start(shell("setsid sh -c 'echo more; echo up >&3; while echo more; do :; done' 7<&- & sleep 1000"));
    ASSERT_EQ(line(*life.worker), "up");
    life.worker->kill("killed by a client");
    EXPECT_THAT(life.record.get().rest, HasSubstr("more"));
}

TEST_F(SupervisorTest, aWorkerGetsWhatItIsGivenAndNothingElse) {
    const supervisor::Descriptor secret(::dup(0));
    WorkerSpec spec = shell(
        "read line <&3; echo $(pwd) $NUMORA_TOKEN $NUMORA_BUNDLES $SUPERVISOR_TEST $(cd /proc/$$/fd; echo "
        "*) $(readlink "
        "/proc/$$/fd/0) "
        "$(grep -E 'Sig(Blk|Ign)|NSpgid|NSsid' /proc/$$/status | cut -f 2) $(ulimit -c) $(cat "
        "/proc/$$/oom_score_adj) >&3; sleep 99");
    spec.folder = "/usr";
    spec.env = {{"SUPERVISOR_TEST", "own"}};
    const Life life = start(spec);
    tell(*life.worker);
    const std::string pid = std::to_string(life.worker->pid());
    const auto badness = std::to_string(std::stoi(supervisor::readText("/proc/self/oom_score_adj")) + 300);
    // 9 is the shell's own; glibc keeps the signals 32 and 33 to itself.
    EXPECT_THAT(line(*life.worker),
                MatchesRegex("/usr /bundles own 0 1 2 3 4 5 6 7 8 9 /dev/null " + pid + " " + pid +
                             " 0000000000000000 0000000[01]80000000 0 " + badness));
}

TEST_F(SupervisorTest, twoHundredDeathsLeaveNothing) {
    const auto things = [] { return std::pair(count("/proc/self/fd"), count("/proc/self/task")); };
    const auto before = things();
    for (int death = 0; death < 200; ++death) {
        Life life = start(shell("sleep 1000"));
        if (death % 2 == 0) {
            // Its memory and sockets are gone before it is dead, and whoever notices may kill it in turn.
            std::jthread other([worker = life.worker] {
                while (worker->memoryBytes() != 0) worker->processorMs();
                worker->kill("closed the link");
            });
            ::kill(life.worker->pid(), SIGKILL);
        } else {
            onThreads(2, [&](int) { life.worker->kill("killed by a client"); });
        }
        EXPECT_EQ(life.record.get().cause, death % 2 == 0 ? "start failed" : "killed by a client");
    }
    EXPECT_FALSE(hasChildren());
    EXPECT_TRUE(eventually([&] { return things() == before; }));
}

TEST_F(SupervisorTest, aWorkerThatCannotBeStartedIsAProblemInWords) {
    EXPECT_EQ(start({.id = "lab", .program = "/nowhere/numora"}).problem,
              "cannot run /nowhere/numora: No such file or directory");
    EXPECT_EQ(start({.id = "lab", .folder = "/nowhere"}).problem,
              "folder must be an existing folder: /nowhere");
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const std::size_t before = count("/proc/self/fd");
    std::size_t failed = 0;
    for (std::size_t more = 0; more < 30; ++more) {  // also fewer than a worker itself is given
        const rlimit few{6 + more, limit.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &few);
        Life life = start(shell("exit 0"));
        ::setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_THAT(life.problem, HasSubstr(life.worker ? "" : "Too many open files"));
        failed += life.worker == nullptr;
        if (life.worker) life.record.get();
    }
    EXPECT_TRUE(failed > 0 && failed < 30) << failed;
    EXPECT_TRUE(eventually([] { return !hasChildren(); }));
    EXPECT_TRUE(eventually([&] { return count("/proc/self/fd") == before; }));
}

TEST_F(SupervisorTest, theEndOfTheServerKillsAllWorkers) {
    std::array lives{start(shell("sleep 1000")), start(shell("sleep 1000"))};
    supervisor_->stop();
    EXPECT_FALSE(hasChildren());
    for (Life& life : lives) EXPECT_EQ(life.record.get().cause, "server stopped");
    EXPECT_EQ(start(shell("exit 0")).problem, "the server stops");
}

TEST_F(SupervisorTest, aSupervisorThatAdoptsReapsStrangers) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    Life life = start(shell("setsid sh -c 'echo up >&3; read line <&4' & read line <&3"));
    ASSERT_EQ(line(*life.worker), "up");
    tell(*life.worker);
    life.record.get();
    siginfo_t info{};
    const auto hasAdopted = [&] { return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0; };
    EXPECT_TRUE(hasAdopted());
    life.worker.reset();  // closes its sockets: the stranger ends
    EXPECT_TRUE(eventually([&] { return start(shell("exit 0")).record.get().pid > 0 && !hasAdopted(); }));
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}
