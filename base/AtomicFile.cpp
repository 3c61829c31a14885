#include "base/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// Large enough that a million-line export is a few hundred system calls.
constexpr std::size_t kFlushSize = 1 << 20;

// Saving through a symbolic link replaces the file it points to, not the link.
std::string resolvedTarget(const std::string& path)
{
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
        return path;
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool sameFile(int fd, const std::string& path)
{
    struct stat open {};
    struct stat named {};
    return ::fstat(fd, &open) == 0 && ::stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

// A file system without fsync for this kind of file has nothing to flush.
bool syncFailed(int fd) { return ::fsync(fd) != 0 && errno != EINVAL && errno != EROFS; }

}  // namespace

AtomicFile::AtomicFile(const std::string& path) : m_path(resolvedTarget(path)), m_temp(temporaryPath(m_path)) {}

AtomicFile::~AtomicFile() { discard(); }

std::string AtomicFile::temporaryPath(const std::string& path) { return path + ".plotvik-tmp"; }

void AtomicFile::fail(int err)
{
    if (!m_failed) {
        m_failed = true;
        m_errno = err;
    }
    discard();
}

bool AtomicFile::open(Mode)
{
    if (m_fd >= 0 || m_failed)
        return false;
    // Like opening the target itself: a file the user made read-only stays.
    if (::access(m_path.c_str(), F_OK) == 0 && ::access(m_path.c_str(), W_OK) != 0) {
        fail(errno);
        return false;
    }
    for (;;) {
        const int fd = ::open(m_temp.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) {
            fail(errno);
            return false;
        }
        int locked;
        do
            locked = ::flock(fd, LOCK_EX);
        while (locked != 0 && errno == EINTR);
        if (locked != 0) {
            const int err = errno;
            ::close(fd);
            fail(err);
            return false;
        }
        // Another writer may have renamed or removed the file while we
        // waited for its lock: then start over with a fresh one.
        if (sameFile(fd, m_temp)) {
            m_fd = fd;
            break;
        }
        ::close(fd);
    }
    // What a killed writer left in the file is dropped here.
    if (::ftruncate(m_fd, 0) != 0) {
        fail(errno);
        return false;
    }
    struct stat target {};
    if (::stat(m_path.c_str(), &target) == 0)
        ::fchmod(m_fd, target.st_mode & 07777);
    return true;
}

void AtomicFile::write(std::string_view bytes)
{
    if (m_failed)
        return;
    m_buffer.append(bytes);
    if (m_buffer.size() >= kFlushSize)
        flushBuffer();
}

void AtomicFile::write(const void* data, std::size_t size)
{
    write(std::string_view(static_cast<const char*>(data), size));
}

void AtomicFile::flushBuffer()
{
    if (m_failed || m_fd < 0 || m_buffer.empty())
        return;
    std::size_t done = 0;
    while (done < m_buffer.size()) {
        const ssize_t n = ::write(m_fd, m_buffer.data() + done, m_buffer.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            fail(n < 0 ? errno : ENOSPC);
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    m_buffer.clear();
}

bool AtomicFile::commit()
{
    flushBuffer();
    if (m_failed || m_fd < 0)
        return false;
    // The data must be on disk before the rename makes it the target, or a
    // power cut could leave an empty file under the target's name.
    if (syncFailed(m_fd)) {
        fail(errno);
        return false;
    }
    // Renamed while the lock is held: no other writer can truncate the file
    // between its last byte and the rename.
    if (::rename(m_temp.c_str(), m_path.c_str()) != 0) {
        fail(errno);
        return false;
    }
    // The rename itself lives in the folder. The new contents are in place
    // whatever this returns, so a failure is not a failed save.
    const int folder = ::open(folderOf(m_path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
    ::close(m_fd);
    m_fd = -1;
    return true;
}

void AtomicFile::discard()
{
    m_buffer.clear();
    if (m_fd < 0)
        return;
    if (sameFile(m_fd, m_temp))
        ::unlink(m_temp.c_str());
    ::close(m_fd);
    m_fd = -1;
}

std::string AtomicFile::errorText() const { return m_errno ? std::strerror(m_errno) : "Unknown error"; }
