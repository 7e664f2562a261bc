// The signal handler knows the one unfinished file by a plain array, which is written before the file is made.

#include "clip/unfinished_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "clip/exit_codes.h"
#include "ui/error_text.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr mode_t k_file_mode = 0666;
constexpr mode_t k_permissions = 0777;
constexpr int k_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

char to_remove[PATH_MAX];  // empty when there is nothing to remove

pthread_t owner;  // the thread that makes and renames the file

/// Runs on the owner, which cannot make the file again once it is removed here.
void remove_and_end(int signal_number) {
    if (pthread_equal(pthread_self(), owner) == 0) {
        pthread_kill(owner, signal_number);
        return;
    }
    if (to_remove[0] != '\0') unlink(to_remove);
    std::signal(signal_number, SIG_DFL);
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, signal_number);
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    std::raise(signal_number);
}

void catch_signals() {
    owner = pthread_self();
    struct sigaction action {};
    action.sa_handler = remove_and_end;
    sigemptyset(&action.sa_mask);
    for (const int signal_number : k_signals) {
        struct sigaction present {};
        // A signal that the caller ignores, as nohup does, stays ignored.
        if (sigaction(signal_number, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) {
            sigaction(signal_number, &action, nullptr);
        }
    }
}

/// Has a folder's names on disk, where the folder may be read and its file system knows how. 0 or the error number.
int sync_folder_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return errno == EACCES ? 0 : errno;
    const int error = fsync(opened) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
    close(opened);
    return error;
}

}  // namespace

UnfinishedFile::UnfinishedFile(const std::string& path) : path_(path) {
    const size_t name = path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1;
    temporary_ = path.substr(0, name) + "." + path.substr(name) + "." + std::to_string(getpid()) + ".part";
    if (temporary_.size() >= sizeof to_remove)
        throw Failure{k_exit_unwritable, path + ": " + tr("problem", "the name is too long")};
    std::memcpy(to_remove, temporary_.c_str(), temporary_.size() + 1);
    catch_signals();
    unlink(temporary_.c_str());  // left by a process that had this number before and was killed
    const int file = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, k_file_mode);
    if (file < 0) {
        to_remove[0] = '\0';
        throw Failure{k_exit_unwritable,
                      path + ": " + formatted(tr("problem", "cannot be written: %s"), error_text(errno).c_str())};
    }
    close(file);
}

UnfinishedFile::~UnfinishedFile() {
    if (!temporary_.empty()) unlink(temporary_.c_str());
    to_remove[0] = '\0';
}

int UnfinishedFile::keep() {
    const int file = open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return errno;
    const int sync_error = fsync(file) == 0 ? 0 : errno;
    struct stat old {};
    // A result that was private stays so. Where the system refuses, the caller's own permissions do.
    if (stat(path_.c_str(), &old) == 0 && fchmod(file, old.st_mode & k_permissions) != 0) errno = 0;
    close(file);
    if (sync_error != 0) return sync_error;
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) return errno;
    temporary_.clear();
    to_remove[0] = '\0';
    return sync_folder_of(path_);
}

}  // namespace tool
