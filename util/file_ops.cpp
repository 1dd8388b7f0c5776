#include "util/file_ops.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MAX_WALK_DESCRIPTORS = 64;
constexpr std::size_t COPY_BLOCK = 4096;
constexpr mode_t MODE_BITS = 07777;

struct Free {
    void operator()(char* text) const { std::free(text); }
};

int nftw_rmdir_callback(const char* path, const struct stat* /*status*/, int /*type*/, FTW* /*place*/)
{
    const int result = std::remove(path);
    if (result != 0) {
        const int error = errno;
        std::perror(path);
        errno = error; // which perror need not leave alone
    }
    return result;
}

/// @param[in,out] being_emptied  the canonical paths of the directories above: a link back to one of them
///                               would be followed without end
int rmdir_visible(const QString& path, QStringList& being_emptied) // NOLINT(misc-no-recursion): a tree
{
    if (!QFileInfo(path).isDir()) // not QDir::exists: an empty path is no directory, least of all this one
        return 0;
    const QString canonical = QDir(path).canonicalPath();
    if (canonical.isEmpty()) // gone meanwhile; QDir would take the working directory instead
        return -1;
    const QDir dir(canonical);
    if (dir.isRoot() || !dir.exists() || being_emptied.contains(canonical))
        return -1;

    being_emptied.append(canonical);
    const auto entries = dir.entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot, QDir::Unsorted);
    bool files_removed = true;
    for (const QFileInfo& entry : entries) {
        if (entry.isDir())
            rmdir_visible(entry.canonicalFilePath(), being_emptied); // what stays fails the rmdir below
        else if (entry.isFile() && !QFile::remove(entry.canonicalFilePath())) {
            files_removed = false;
            break;
        }
    }
    being_emptied.removeLast();
    return files_removed && QDir().rmdir(path) ? 0 : -1;
}

ssize_t read_block(int src, char* block)
{
    ssize_t size = 0;
    do
        size = ::read(src, block, COPY_BLOCK);
    while (size < 0 && errno == EINTR);
    return size;
}

bool write_whole(int dst, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(dst, data, size);
        if (written >= 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (errno != EINTR)
            return false;
    }
    return true;
}

bool copy_blocks(int src, int dst)
{
    char block[COPY_BLOCK];
    for (;;) {
        const ssize_t size = read_block(src, block);
        if (size == 0)
            return true;
        if (size < 0) {
            std::perror("copy_file(): read src:");
            return false;
        }
        if (!write_whole(dst, block, static_cast<std::size_t>(size))) {
            std::perror("copy_file(): write dst:");
            return false;
        }
    }
}

} // namespace

int file_ops_mkdir_recursive(const char* path)
{
    if (path == nullptr || *path == '\0')
        return -1;
    const QDir dir{QString(path)};
    if (!dir.exists())
        dir.mkpath("./");
    return dir.exists() ? 0 : -1;
}

int file_ops_rmdir_recursive(const char* path)
{
    const std::unique_ptr<char, Free> resolved(::realpath(path, nullptr));
    if (!resolved)
        return -1; // with the errno of the resolution
    if (std::strcmp(resolved.get(), "/") == 0) {
        errno = EACCES;
        return -1;
    }
    return ::nftw(resolved.get(), nftw_rmdir_callback, MAX_WALK_DESCRIPTORS, FTW_DEPTH | FTW_PHYS);
}

int file_ops_rmdir_recursive_qt(QString path)
{
    QStringList being_emptied;
    return rmdir_visible(path, being_emptied);
}

size_t file_ops_stream_write(const void* data, size_t size, size_t nmemb, FILE* stream)
{
    const off_t start = ::ftello(stream);
    if (start < 0)
        return 0;
    std::clearerr(stream);
    if (nmemb == 0)
        return 0;

    const char* const bytes = static_cast<const char*>(data);
    size_t nmemb_written = 0;
    while (nmemb_written < nmemb) {
        errno = 0;
        const size_t now = std::fwrite(bytes + size * nmemb_written, size, nmemb - nmemb_written, stream);
        if (now > 0 && std::ferror(stream) == 0 && std::feof(stream) == 0) {
            nmemb_written += now;
            continue;
        }
        if (errno != EINTR && errno != EAGAIN)
            return nmemb_written;
        const off_t attempt = start + static_cast<off_t>(size * nmemb_written);
        if (::ftello(stream) != attempt && ::fseeko(stream, attempt, SEEK_SET) != 0)
            return nmemb_written;
        std::clearerr(stream);
    }
    assert(nmemb_written == nmemb);
    return nmemb;
}

bool copy_file(const char* src, const char* dst)
{
    const int in = ::open(src, O_RDONLY);
    if (in < 0) {
        std::perror("copy_file(): open src:");
        return false;
    }
    struct stat status {};
    if (::fstat(in, &status) != 0) {
        std::perror("copy_file(): fstat src:");
        return false; // deliberate: the descriptor stays open
    }
    const int out = ::open(dst, O_WRONLY | O_CREAT | O_TRUNC, status.st_mode & MODE_BITS);
    if (out < 0) {
        const int error = errno;
        ::close(in);
        errno = error; // close may fail as well, and the line tells of the open
        std::perror("copy_file(): open dst:");
        return false;
    }
    const bool copied = copy_blocks(in, out);
    ::close(in);
    ::close(out);
    return copied;
}
