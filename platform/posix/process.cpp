#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/posix/retry.h"

namespace qv::platform {

ChildProcess::~ChildProcess() {
    if (runs()) (void)finish();
}

int ChildProcess::start(const std::vector<std::string>& arguments) {
    if (arguments.empty() || runs()) return EINVAL;
    std::vector<char*> words;
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t files;
    if (const int error = posix_spawn_file_actions_init(&files); error != 0) return error;
    pid_t id = 0;
    int error = posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0) error = posix_spawnp(&id, words[0], &files, nullptr, words.data(), environ);
    (void)posix_spawn_file_actions_destroy(&files);
    if (error != 0) return error;
    m_id = id;
    m_ended = static_cast<WaitHandle>(syscall(SYS_pidfd_open, id, 0));
    if (m_ended != noHandle) return 0;
    error = errno;
    stop(true);
    (void)finish();
    return error;
}

int ChildProcess::finish() {
    int status = 0;
    (void)retried([&] { return waitpid(m_id, &status, 0); });
    closeHandle(m_ended);
    m_ended = noHandle;
    m_id = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::stop(bool byForce) { (void)kill(m_id, byForce ? SIGKILL : SIGTERM); }

}  // namespace qv::platform
