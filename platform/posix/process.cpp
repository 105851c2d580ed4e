#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "platform/posix/retry.h"

namespace qv::platform {

namespace {

/// What posix_spawn does between the fork and the exec, as the options want it. The first failure stays.
class Preparation {
public:
    Preparation() {
        m_error = posix_spawn_file_actions_init(&m_files);
        m_hasFiles = m_error == 0;
        if (m_hasFiles) m_error = posix_spawnattr_init(&m_attributes);
        m_hasAttributes = m_hasFiles && m_error == 0;
    }
    ~Preparation() {
        if (m_hasFiles) (void)posix_spawn_file_actions_destroy(&m_files);
        if (m_hasAttributes) (void)posix_spawnattr_destroy(&m_attributes);
    }
    Preparation(const Preparation&) = delete;
    Preparation& operator=(const Preparation&) = delete;

    /// @param output  Becomes both output streams; -1 leaves them.
    void set(const ChildProcess::Options& options, int output) {
        short flags = 0;
        if (output != -1) {
            // Before the input is opened, which may take the pipe's number.
            also([&] { return posix_spawn_file_actions_adddup2(&m_files, output, STDOUT_FILENO); });
            also([&] { return posix_spawn_file_actions_adddup2(&m_files, output, STDERR_FILENO); });
            also([&] { return posix_spawn_file_actions_addclosefrom_np(&m_files, STDERR_FILENO + 1); });
            setSignals();
            flags |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        }
        also([&] { return posix_spawn_file_actions_addopen(&m_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0); });
        if (!options.directory.empty()) {
            also([&] { return posix_spawn_file_actions_addchdir_np(&m_files, options.directory.c_str()); });
        }
        if (options.ownGroup) flags |= POSIX_SPAWN_SETPGROUP;  // the group of its own number, which is the default
        also([&] { return posix_spawnattr_setflags(&m_attributes, flags); });
    }

    int spawn(pid_t& id, char* const* words) {
        also([&] { return posix_spawnp(&id, words[0], &m_files, &m_attributes, words, environ); });
        return m_error;
    }

private:
    template <class Step>
    void also(Step step) {
        if (m_error == 0) m_error = step();
    }
    void setSignals() {
        sigset_t none, ignored;
        (void)sigemptyset(&none);
        (void)sigemptyset(&ignored);
        (void)sigaddset(&ignored, SIGPIPE);
        also([&] { return posix_spawnattr_setsigmask(&m_attributes, &none); });
        also([&] { return posix_spawnattr_setsigdefault(&m_attributes, &ignored); });
    }

    posix_spawn_file_actions_t m_files;
    posix_spawnattr_t m_attributes;
    bool m_hasFiles = false;
    bool m_hasAttributes = false;
    int m_error = 0;
};

void closeAndForget(WaitHandle& handle) { closeHandle(std::exchange(handle, noHandle)); }

}  // namespace

ChildProcess::~ChildProcess() {
    closeAndForget(m_output);  // a program that nobody listens to does not wait for a listener
    if (runs()) (void)finish();
}

int ChildProcess::start(const std::vector<std::string>& arguments, const Options& options) {
    if (arguments.empty() || runs()) return EINVAL;
    std::vector<char*> words;
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    closeAndForget(m_output);
    int ends[2] = {-1, -1};  // to read from, to write to
    if (options.captured && pipe2(ends, O_CLOEXEC) != 0) return errno;
    m_output = ends[0];
    WaitHandle written = ends[1];

    pid_t id = 0;
    Preparation preparation;
    preparation.set(options, ends[1]);
    int error = preparation.spawn(id, words.data());
    closeAndForget(written);
    if (error == 0) {
        m_id = id;
        m_ownGroup = options.ownGroup;
        if (options.captured) error = errorOf(fcntl(ends[0], F_SETFL, O_NONBLOCK));
        m_ended = error == 0 ? static_cast<WaitHandle>(syscall(SYS_pidfd_open, id, 0)) : noHandle;
        if (m_ended != noHandle) return 0;
        if (error == 0) error = errno;
        if (error == ESRCH) return 0;  // it has ended, and a process that ignores SIGCHLD is not told how
        stop(true);
        (void)finish();
    }
    closeAndForget(m_output);
    return error;
}

bool ChildProcess::hasEnded() const { return m_ended == noHandle || waitForAny(&m_ended, 1, 0) == 0; }

size_t ChildProcess::readOutput(char* buffer, size_t size) {
    if (m_output == noHandle) return 0;
    const ssize_t got = retried([&] { return read(static_cast<int>(m_output), buffer, size); });
    if (got > 0) return static_cast<size_t>(got);
    // Nobody holds the other end any more.
    if (got == 0 || errno != EAGAIN) closeAndForget(m_output);
    return 0;
}

ChildEnd ChildProcess::finish() {
    int status = 0;
    // Without success somebody else has waited for it, and nothing is known of its end.
    const bool known = retried([&] { return waitpid(m_id, &status, 0); }) == m_id;
    closeAndForget(m_ended);
    m_id = 0;
    if (!known) return {};
    return WIFEXITED(status) ? ChildEnd{WEXITSTATUS(status), false} : ChildEnd{128 + WTERMSIG(status), true};
}

void ChildProcess::stop(bool byForce) {
    // As long as it waits to be waited for, nobody else has its number.
    siginfo_t state;
    if (waitid(P_PID, static_cast<id_t>(m_id), &state, WEXITED | WNOHANG | WNOWAIT) != 0) return;
    (void)kill(m_ownGroup ? -m_id : m_id, byForce ? SIGKILL : SIGTERM);
}

Followed follow(ChildProcess& child, size_t chunkSize, const std::function<void(std::string_view)>& take,
                int64_t deadline, WaitHandle interrupt) {
    constexpr size_t mostWaiting = size_t{1} << 20;  // what a pipe holds
    std::vector<char> chunk(chunkSize);
    size_t readAfterEnd = 0;
    for (;;) {
        const bool ended = child.hasEnded();  // before the look at the output, which may come in between
        const size_t size = child.readOutput(chunk.data(), chunk.size());
        if (size > 0) take({chunk.data(), size});
        if (ended) readAfterEnd += size;
        if (ended && (size == 0 || readAfterEnd >= mostWaiting)) return Followed::toTheEnd;
        if (ended) continue;
        if (millisecondsUntil(deadline) == 0) return Followed::timedOut;
        std::vector<WaitHandle> handles{child.ended()};
        if (child.output() != noHandle) handles.push_back(child.output());
        if (interrupt != noHandle) handles.push_back(interrupt);
        const int ready = waitForAny(handles.data(), handles.size(), millisecondsUntil(deadline));
        if (ready == waitFailed || (interrupt != noHandle && waitForAny(&interrupt, 1, 0) == 0)) {
            return Followed::interrupted;
        }
    }
}

}  // namespace qv::platform
