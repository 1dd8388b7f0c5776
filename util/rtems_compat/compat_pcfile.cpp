#include "util/rtems_compat/compat_pcfile.h"

#include <QMutex>
#include <QThread>

#include "platform/MutexImp.h"
#include "platform/Platform.h"
#include "platform/Rtime.h"
#include "util/kernel_thread_private.h"

#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// Not in the header: who knows them by name must not hand them to a call that opens, which asserts so.
extern QUARVEL_EXPORT int pcf_rfd;
extern QUARVEL_EXPORT int pcf_wfd;

int pcf_rfd = -1;
int pcf_wfd = -1;

namespace {

constexpr std::size_t NAME_SIZE = 256;
constexpr std::size_t PATH_SIZE = 517;
constexpr mode_t DIRECTORY_MODE = 0755;
constexpr mode_t FILE_MODE = 0600;
constexpr const char* REFUSED_CHARACTERS = " ,{}()@&\"/\\";

/// Does not nest: what needs the lock held is a function in here. The owner is for who looks at a process
/// that hangs.
class Store_lock {
public:
    void lock()
    {
        if (!mutex.tryLock())
            MutexImp::debug_lock(mutex);
        // From whoever let go last, for the data-race checker, which does not see into Qt's lock.
        static_cast<void>(kernel_owner.load(std::memory_order_acquire));
        qt_owner.store(QThread::currentThreadId(), std::memory_order_relaxed);
        kernel_owner.store(Util::kernel_thread_id(), std::memory_order_relaxed);
    }
    void unlock()
    {
        qt_owner.store(nullptr, std::memory_order_relaxed);
        kernel_owner.store(0, std::memory_order_release);
        mutex.unlock();
    }

private:
    QMutex mutex;
    std::atomic<Qt::HANDLE> qt_owner{nullptr};
    std::atomic<pid_t> kernel_owner{0};
};

using Locked = std::lock_guard<Store_lock>;

/// An open directory, at its start.
class Directory {
public:
    explicit Directory(const char* path) : stream(::opendir(path)) {}
    ~Directory()
    {
        if (stream != nullptr)
            ::closedir(stream); // only read from: nothing can be lost
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    bool is_open() const { return stream != nullptr; }
    int descriptor() const { return ::dirfd(stream); }
    void rewind() { ::rewinddir(stream); }

    /// The next entry not known to be a directory; null at the end, with errno set when reading failed.
    const char* next_file()
    {
        errno = 0;
        while (const dirent* const entry = ::readdir(stream))
            if (entry->d_type != DT_DIR)
                return entry->d_name;
        return nullptr;
    }

private:
    DIR* stream;
};

/// The files of a directory in its order, from one walk: walking to each name anew takes the square of their
/// number. Good for as long as the directory is unchanged by its status, to which every use compares it.
class Listing {
public:
    bool is_of(const Directory& directory) const
    {
        struct stat status {};
        return taken && ::fstat(directory.descriptor(), &status) == 0 && is_of(status);
    }

    /// Whether it now holds this directory; if not, which is no fault, that is at its start as before.
    bool take(Directory& directory)
    {
        struct stat status {};
        if (::fstat(directory.descriptor(), &status) != 0)
            return false;
        if (taken && is_of(status))
            return true;
        taken = false;
        if (!is_at_rest(status.st_ctim))
            return false;
        taken_of = status;
        taken = read(directory);
        if (!taken)
            directory.rewind();
        return taken;
    }

    std::size_t size() const { return starts.size(); }
    const char* name(std::size_t index) const { return names.data() + starts[index]; }

private:
    static constexpr std::size_t LARGEST = std::size_t{4} << 20; // bytes of names; beyond, each call walks

    /// Whether every change from now on gives the directory another time than it has. The time of a change is
    /// that of the system's last tick, 10 ms back at most, cut to what the file system can store: two seconds
    /// on some cards, ten milliseconds on others, on all the rest so little that it ends in no round number.
    static bool is_at_rest(const timespec& changed)
    {
        constexpr long COARSE_NS = 10'000'000;
        const bool is_coarse = changed.tv_nsec % COARSE_NS == 0;
        const Rtime now(true);
        const std::int64_t age_ms =
            (now.seconds - changed.tv_sec) * 1000 + now.milliseconds - changed.tv_nsec / 1'000'000;
        return age_ms > (is_coarse ? 3000 : 50);
    }

    bool is_of(const struct stat& status) const
    {
        return status.st_dev == taken_of.st_dev && status.st_ino == taken_of.st_ino &&
               status.st_ctim.tv_sec == taken_of.st_ctim.tv_sec &&
               status.st_ctim.tv_nsec == taken_of.st_ctim.tv_nsec && status.st_size == taken_of.st_size;
    }

    bool read(Directory& directory)
    {
        names.clear();
        starts.clear();
        while (const char* const name = directory.next_file()) {
            if (names.size() >= LARGEST)
                return false;
            starts.push_back(names.size());
            names.insert(names.end(), name, name + ::strnlen(name, NAME_SIZE - 1));
            names.push_back('\0');
        }
        return errno == 0;
    }

    bool taken = false;
    struct stat taken_of {};
    std::vector<char> names;         ///< each with its end
    std::vector<std::size_t> starts; ///< of each name in `names`
};

// Guarded by the lock, as the two descriptors are. pcfDirectory() alone reads without.
Store_lock store_lock;
bool mounted = false;
char store_directory[NAME_SIZE] = "";
unsigned listing_index = 0;
char listing_name[NAME_SIZE] = "";
Listing listing;

void say(const char* format, ...) __attribute__((format(printf, 1, 2)));
void say(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vfprintf(stderr, format, arguments)); // nowhere left to say so
    va_end(arguments);
}

const char* error_text()
{
    return std::strerror(
        errno); // NOLINT(concurrency-mt-unsafe): the C library's table, for errors of the system
}

struct Path {
    explicit Path(const char* name)
    {
        static_cast<void>(std::snprintf(text, sizeof text, "%s/%s", store_directory, name)); // cut if need be
    }
    char text[PATH_SIZE];
};

int saturated(std::int64_t value)
{
    constexpr std::int64_t MOST = std::numeric_limits<int>::max();
    constexpr std::int64_t LEAST = std::numeric_limits<int>::min();
    return static_cast<int>(value > MOST ? MOST : value < LEAST ? LEAST : value);
}

bool set_directory(const char* dir)
{
    char text[NAME_SIZE];
    const int length = dir != nullptr ? std::snprintf(text, sizeof text, "%s", dir)
                                      : std::snprintf(text, sizeof text, "%spcf",
                                                      Platform::instance().base_directory().c_str());
    // Not written unless it changes, for the sake of those who read it without the lock.
    if (std::strcmp(store_directory, text) != 0)
        std::memcpy(store_directory, text, std::strlen(text) + 1);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof text)
        return true;
    say("PCF: Directory name too long (%s)",
        dir != nullptr ? dir : store_directory); // deliberate: no line end
    return false;
}

bool mount(const char* dir)
{
    if (mounted)
        return true;
    if (!set_directory(dir))
        return false;
    struct stat status {};
    if (::stat(store_directory, &status) != 0)
        static_cast<void>(::mkdir(store_directory, DIRECTORY_MODE)); // the second look tells
    if (::stat(store_directory, &status) != 0) {
        say("PCF: Could not create dir %s: %d\n", store_directory, errno);
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        say("PCF: IS NOT DIRECTORY\n");
        return false;
    }
    mounted = true;
    return true;
}

bool mount_default_anew()
{
    mounted = false;
    static_cast<void>(::unlink(store_directory)); // deliberate: a directory stays, with all that is in it
    return mount(nullptr);
}

/// @return false after a failure, which has been told
bool seek(int fd, const char* name, unsigned long offset)
{
    const off_t position = ::lseek(fd, static_cast<off_t>(offset), SEEK_SET);
    if (position >= 0 && static_cast<std::uint64_t>(position) == offset)
        return true;
    say("ERROR: pcfOpenRead '%s' seek to %lu failed: %s\n", name, offset,
        position < 0 ? error_text() : "incorrect offset");
    return false;
}

int size_of(const char* name, int* mtime, bool verbose)
{
    if (!mounted) {
        if (verbose)
            say("ERROR: pcfSize '%s' failed: pcf not mounted\n", name);
        return -1;
    }
    struct stat status {};
    if (::stat(Path(name).text, &status) != 0) {
        if (verbose)
            say("ERROR: pcfSize '%s' failed: %s\n", name, error_text());
        return -1;
    }
    if (mtime != nullptr)
        *mtime = saturated(status.st_mtime);
    return saturated(status.st_size);
}

/// At most 255 characters, whatever the file system allows, and their end.
bool copy_name(const char* name, char* out)
{
    const std::size_t length = ::strnlen(name, NAME_SIZE - 1);
    std::memcpy(out, name, length);
    out[length] = '\0';
    return true;
}

bool file_name(int index, char* out)
{
    if (!mounted || index < 0)
        return false;
    Directory directory(store_directory);
    if (!directory.is_open())
        return false;
    const auto wanted = static_cast<std::size_t>(index);
    // The first name is found at once; who wants a later one is likely to want them all.
    if (wanted > 0 && listing.take(directory))
        return wanted < listing.size() && copy_name(listing.name(wanted), out);
    std::size_t position = 0;
    while (const char* const name = directory.next_file())
        if (position++ == wanted)
            return copy_name(name, out);
    return false;
}

const char* next_file(PcfFileInfo* info)
{
    const auto index = static_cast<int>(listing_index++);
    if (!file_name(index, listing_name))
        return nullptr;
    if (info != nullptr) {
        int mtime = 0;
        info->size = size_of(listing_name, &mtime, true);
        info->mtime = mtime;
    }
    return listing_name;
}

} // namespace

// ---- the store

bool pcfIsMounted(const char* dir)
{
    const Locked locked(store_lock);
    return mount(dir);
}

const char* pcfDirectory()
{
    return store_directory;
}

int pcfFormat()
{
    const Locked locked(store_lock);
    return mount_default_anew() ? 1 : 0;
}

PcfResult pcfRemoveAll()
{
    const Locked locked(store_lock);
    return mount_default_anew() ? PCF_SUCCESS : PCF_FAILURE;
}

bool pcfInfo(PcfInfo& info)
{
    const Locked locked(store_lock);
    info = {1000000, 500000, 1024, 976, 0, 0, 1, 100, 0, 1};
    return true;
}

int pcfMountInProgress()
{
    const Locked locked(store_lock);
    return 0;
}

// ---- names

bool pcfCheckName(const char* name)
{
    return name != nullptr && *name != '\0' && std::strpbrk(name, REFUSED_CHARACTERS) == nullptr;
}

// ---- reading

// NOLINTNEXTLINE(readability-non-const-parameter): the interface
PcfResult pcfOpenRead(const char* name, unsigned long offset, int* fd)
{
    const Locked locked(store_lock);
    if (!mounted) {
        say("ERROR: pcfOpenRead '%s' failed: pcf not mounted\n", name);
        return PCF_FAILURE;
    }
    if (fd != nullptr) {
        say("ERROR: pcfOpenRead with specific file descriptor disallowed!\n");
        return PCF_FAILURE;
    }
    if (pcf_rfd >= 0) {
        say("WARNING: pcfOpenRead '%s' failed: global read fd already open\n", name);
        return PCF_REFUSED;
    }
    const Path path(name);
    const int opened = ::open(path.text, O_RDONLY | O_CLOEXEC);
    if (opened < 0) {
        say("ERROR: pcfOpenRead '%s' failed: %s\n", path.text, error_text());
        return PCF_FAILURE;
    }
    if (!seek(opened, name, offset)) {
        ::close(opened); // nothing was read from it
        return PCF_FAILURE;
    }
    if (pcf_rfd >= 0) // whoever sets it without the lock
        say("WARNING: pcfOpenRead global call overwrote global read fd %d!\n", pcf_rfd);
    pcf_rfd = opened;
    return PCF_SUCCESS;
}

int pcfRead(void* buf, int len, PcfResult& result, int fd)
{
    const Locked locked(store_lock);
    result = PCF_FAILURE;
    if (!mounted) {
        say("ERROR: pcfRead failed: pcf not mounted\n");
        return -1;
    }
    if (fd != 0) {
        say("WARNING: pcfRead from non-global fd %d\n", fd);
        if (fd < 0) {
            say("ERROR: pcfRead failed: bad file descriptor\n");
            result = PCF_BAD_DESCRIPTOR;
            return -1;
        }
    } else if (pcf_rfd < 0) {
        say("ERROR: pcfRead failed: global read fd not open\n");
        result = PCF_BAD_DESCRIPTOR;
        return -1;
    }
    // A negative length becomes one that the system refuses.
    const std::int64_t count = ::read(fd != 0 ? fd : pcf_rfd, buf, static_cast<std::size_t>(len));
    if (count < 0) {
        say("ERROR: pcfRead failed: %s\n", error_text());
        return -1;
    }
    result = PCF_SUCCESS;
    return static_cast<int>(count);
}

PcfResult pcfCloseRead(int fd)
{
    const Locked locked(store_lock);
    if (!mounted)
        say("WARNING: pcfCloseRead attempted while pcf not mounted\n");
    const int closed = fd == 0 ? pcf_rfd : fd;
    if (closed == -1) {
        say(fd == 0 ? "ERROR: pcfCloseRead failed: global read fd not open\n"
                    : "ERROR: pcfCloseRead failed: invalid file descriptor\n");
        return PCF_FAILURE;
    }
    PcfResult result = PCF_SUCCESS;
    if (::close(closed) != 0) {
        say("ERROR: pcfCloseRead close failed: %s\n", error_text());
        result = PCF_FAILURE;
    }
    if (fd == 0)
        pcf_rfd = -1;
    return result;
}

// ---- writing

bool pcfCreateWrite(const char* name)
{
    return pcfOpenWriteImpl(name, nullptr, true);
}

bool pcfCreateWrite(const char* name, int* fd)
{
    return pcfOpenWriteImpl(name, fd, true);
}

bool pcfOpenWrite(const char* name)
{
    return pcfOpenWriteImpl(name, nullptr, false);
}

bool pcfOpenWrite(const char* name, int* fd)
{
    return pcfOpenWriteImpl(name, fd, false);
}

bool pcfOpenWriteImpl(const char* name, int* fh, bool create)
{
    char label[32];
    static_cast<void>(
        std::snprintf(label, sizeof label, "pcf%sWrite", create ? "Create" : "Write")); // it fits

    const Locked locked(store_lock);
    if (!pcfCheckName(name)) {
        say("ERROR: %s '%s' failed: pcfCheckName rejects name\n", label, name != nullptr ? name : "(null)");
        return false;
    }
    if (!mounted) {
        say("ERROR: %s '%s' failed; pcf not mounted\n", label, name); // deliberate: a semicolon here alone
        return false;
    }
    if (fh != nullptr) {
        say("WARNING: %s call with specific write fd may break on ORX\n", label);
        assert(fh != &pcf_wfd);
    } else if (pcf_wfd >= 0) {
        say("ERROR: %s '%s' failed: global write fd already open\n", label, name);
        return false;
    }
    const int opened =
        ::open(Path(name).text, O_WRONLY | O_APPEND | O_CLOEXEC | (create ? O_CREAT : 0), FILE_MODE);
    if (opened < 0) {
        say("ERROR: %s '%s' failed: %s\n", label, name, error_text());
        return false;
    }
    if (fh != nullptr) {
        *fh = opened;
        return true;
    }
    if (pcf_wfd >= 0) // whoever sets it without the lock
        say("WARNING: %s global call overwrote global write fd %d!\n", label, pcf_wfd);
    pcf_wfd = opened;
    return true;
}

int pcfWrite(const void* data, int len)
{
    return pcfWriteImpl(data, len, -1);
}

int pcfWrite(const void* data, int len, int fd)
{
    return pcfWriteImpl(data, len, fd);
}

int pcfWriteImpl(const void* data, int len, int fd)
{
    const Locked locked(store_lock);
    const int written_to = fd < 0 ? pcf_wfd : fd;
    if (written_to == -1) {
        say("ERROR: pcfWrite failed: invalid file descriptor\n");
        return -1;
    }
    int written = 0;
    while (written < len) {
        const std::int64_t count = ::write(written_to, static_cast<const char*>(data) + written,
                                           static_cast<std::size_t>(len - written));
        if (count > 0)
            written += static_cast<int>(count);
        else if (count == 0)
            break;
        else if (errno != EAGAIN && errno != EINTR) {
            say("ERROR: pcfWrite failed :%s\n", error_text());
            return -1;
        }
    }
    return written;
}

bool pcfCloseWrite()
{
    return pcfCloseWriteImpl(-1);
}

bool pcfCloseWrite(int fd)
{
    return pcfCloseWriteImpl(fd);
}

bool pcfCloseWriteImpl(int fd)
{
    const Locked locked(store_lock);
    if (!mounted)
        say("WARNING: pcfCloseWrite attempted while pcf not mounted\n");
    const int closed = fd < 0 ? pcf_wfd : fd;
    if (closed == -1)
        return true;
    if (::fdatasync(closed) != 0)
        say("ERROR: pcfCloseWriteImpl fdatasync failed: %s\n", error_text());
    if (::close(closed) != 0)
        say("ERROR: pcfCloseWriteImpl failed: %s\n", error_text());
    if (closed == pcf_wfd)
        pcf_wfd = -1;
    return true;
}

// ---- files

int pcfSize(const char* name, int* mtime)
{
    return pcfSizeImpl(name, mtime, true);
}

bool pcfExists(const char* name)
{
    return pcfSizeImpl(name, nullptr, false) >= 0;
}

int pcfSizeImpl(const char* name, int* mtime, bool verbose)
{
    const Locked locked(store_lock);
    return size_of(name, mtime, verbose);
}

int pcfRemove(const char* name)
{
    const Locked locked(store_lock);
    static_cast<void>(::unlink(Path(name).text)); // deliberate: whatever happened
    return 0;
}

// ---- listing

int pcfGetNumFiles()
{
    const Locked locked(store_lock);
    if (!mounted)
        return 0;
    Directory directory(store_directory);
    if (!directory.is_open())
        return 0;
    if (listing.is_of(directory))
        return static_cast<int>(listing.size());
    int count = 0;
    while (directory.next_file() != nullptr)
        ++count;
    return count;
}

bool pcfGetFileName(int index, char* out)
{
    const Locked locked(store_lock);
    return file_name(index, out);
}

const char* pcfFirst(PcfFileInfo* info)
{
    const Locked locked(store_lock);
    listing_index = 0;
    return next_file(info);
}

const char* pcfNext(PcfFileInfo* info)
{
    const Locked locked(store_lock);
    return next_file(info);
}

// ---- what was never written

PcfResult pcfRemoveOldest()
{
    const Locked locked(store_lock);
    std::puts("TODO: pcfRemoveOldest");
    return PCF_FAILURE;
}

PcfResult pcfRemount(bool /*unused*/)
{
    const Locked locked(store_lock);
    std::puts("TODO: pcfRemount");
    return PCF_SUCCESS;
}

void pcfSetRmOld(int /*number*/)
{
    std::puts("TODO: pcfSetRmOld");
}
