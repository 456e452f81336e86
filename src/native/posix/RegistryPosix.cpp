// RegistryPosix.cpp - the registry as a .reg text file, for POSIX systems.
// Part of qvbase, the QVKernel foundation class library.
//
// The store is one file, named by QVBASE_REGISTRY or else
// $XDG_CONFIG_HOME/qvbase/registry.reg (~/.config when XDG_CONFIG_HOME is not
// set). Reads parse the file as it is; the file is only ever replaced whole,
// by rename, so a reader never sees half a write. A change takes an exclusive
// lock on "<store>.lock", reads the current file, changes it in memory, writes
// a temporary file beside it and renames it over the store: writers in several
// processes queue on the lock and each sees the others' changes. A file that
// does not parse fails every call with ERROR_BADDB and is left as it is.
#include "native/Registry.h"

#include "native/RegFile.h"
#include "native/RegFileParser.h"
#include "native/RegFileWriter.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <mutex>
#include <pwd.h>
#include <set>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace qvbase {
namespace native {

using regfile::Key;
using regfile::Root;
using regfile::Tree;

struct RegKeyOpaque {
  Root root;
  std::vector<std::string> path; // names below the root
  DWORD access;
};

namespace {

// The two hives are constructed before every other global of the library:
// the library's components write a registry value from their constructors
// at load, and without a priority this static layer's globals would come
// after the library's own (they are built in link order).
RegKeyOpaque gLocalMachine
    __attribute__((init_priority(101))){Root::kLocalMachine, {}, kKeyAllAccess};
RegKeyOpaque gCurrentUser
    __attribute__((init_priority(101))){Root::kCurrentUser, {}, kKeyAllAccess};

// Handles handed out and not yet closed, so that a stale or foreign pointer is
// answered with ERROR_INVALID_HANDLE instead of being followed.
std::mutex gHandlesMutex;
std::set<RegKeyOpaque*>& LiveHandles() {
  static std::set<RegKeyOpaque*>* handles = new std::set<RegKeyOpaque*>;
  return *handles;
}

thread_local std::string tLastError;

LONG Succeed() {
  tLastError.clear();
  return ERROR_SUCCESS;
}

LONG FailWith(LONG code, std::string text) {
  tLastError = std::move(text);
  return code;
}

LONG Fail(LONG code) {
  const char* text = "registry call failed";
  switch (code) {
  case ERROR_FILE_NOT_FOUND:
    text = "not found";
    break;
  case ERROR_ACCESS_DENIED:
    text = "access denied";
    break;
  case ERROR_INVALID_HANDLE:
    text = "invalid key handle";
    break;
  case ERROR_INVALID_PARAMETER:
    text = "invalid parameter";
    break;
  case ERROR_BAD_PATHNAME:
    text = "invalid key name";
    break;
  case ERROR_MORE_DATA:
    text = "the buffer is too small";
    break;
  case ERROR_NO_MORE_ITEMS:
    text = "no more items";
    break;
  case ERROR_KEY_DELETED:
    text = "the key has been deleted";
    break;
  }
  return FailWith(code, text);
}

bool IsRootHandle(RegKey key) { return key == &gLocalMachine || key == &gCurrentUser; }

bool IsValidHandle(RegKey key) {
  if (!key)
    return false;
  if (IsRootHandle(key))
    return true;
  std::lock_guard<std::mutex> lock(gHandlesMutex);
  return LiveHandles().count(key) != 0;
}

RegKey NewHandle(Root root, std::vector<std::string> path, DWORD access) {
  auto key = std::make_unique<RegKeyOpaque>(RegKeyOpaque{root, std::move(path), access});
  std::lock_guard<std::mutex> lock(gHandlesMutex);
  LiveHandles().insert(key.get());
  return key.release();
}

std::string StorePath() {
  if (const char* path = std::getenv("QVBASE_REGISTRY"); path && *path)
    return path;
  std::string base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) {
    base = xdg;
  } else {
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
      struct passwd* pw = getpwuid(getuid());
      home = pw ? pw->pw_dir : "/tmp";
    }
    base = std::string(home) + "/.config";
  }
  return base + "/qvbase/registry.reg";
}

std::string ErrnoText(const char* what, const std::string& path) {
  return std::string(what) + " " + path + ": " + std::strerror(errno);
}

// Creates every missing directory above `path`.
bool MakeParentDirectories(const std::string& path) {
  std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0)
    return true;
  std::string dir = path.substr(0, slash);
  struct stat st;
  if (stat(dir.c_str(), &st) == 0)
    return S_ISDIR(st.st_mode);
  if (!MakeParentDirectories(dir))
    return false;
  return mkdir(dir.c_str(), 0777) == 0 || errno == EEXIST;
}

std::string DirectoryOf(const std::string& path) {
  std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The file a store path names, through any symbolic links (whose targets
// need not exist yet): a store that is a link is read and written through
// it, and the link stays a link, as editors keep it.
std::string FollowLinks(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
      return path;
    std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 4096) + 1, '\0');
    ssize_t n = readlink(path.c_str(), target.data(), target.size());
    if (n < 0 || static_cast<std::size_t>(n) >= target.size())
      return path;
    target.resize(static_cast<std::size_t>(n));
    if (!target.empty() && target.front() == '/') {
      path = target;
    } else {
      std::string relative = DirectoryOf(path);
      relative += '/';
      relative += target;
      path = relative;
    }
  }
  return path; // a loop: opening it reports the error
}

// A file descriptor, closed when it goes out of scope.
class Descriptor {
public:
  explicit Descriptor(int fd = -1) : m_fd(fd) {}
  ~Descriptor() {
    if (m_fd >= 0)
      close(m_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return m_fd; }
  // Closes now; false (with errno) when closing reports an error.
  bool Close() {
    int fd = m_fd;
    m_fd = -1;
    return fd < 0 || close(fd) == 0;
  }

private:
  int m_fd;
};

// ---------------------------------------------------------------------------
// Stopping a writer part way, for the tests that kill one: with the
// environment variable QVBASE_REGISTRY_TEST_STOP_AT set to n, the process
// kills itself (SIGKILL, as a crash or `kill -9` would) at the n-th step of
// a change. Steps: the lock taken, the store read, the temporary file
// opened, each 4 KiB written, the data flushed, the rename, the directory
// flushed. Only tests set it; unset, nothing is counted.

constexpr std::size_t kWriteStep = 4096;

void Step() {
  static const char* stopAt = std::getenv("QVBASE_REGISTRY_TEST_STOP_AT");
  static long steps = 0;
  if (stopAt && ++steps == std::atol(stopAt))
    kill(getpid(), SIGKILL);
}

// ---------------------------------------------------------------------------
// Snapshots: the tree of the store last read (or written) is kept with the
// identity of its file (device, inode, size, modification and change times)
// and a hash of its bytes. A read whose file has the same identity, and has
// not been touched for a few seconds, takes the tree without reading the
// file; one touched more recently could have been changed in place within
// one tick of the file system's clock, so its bytes are read and compared by
// hash first. Only a changed file is parsed again. Writers replace the file
// by rename, so a changed store is a new inode.

constexpr std::int64_t kSettledNanoseconds = 2000000000; // two seconds

struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0; // nanoseconds since 1970
  std::int64_t changed = 0;
  bool exists = false;

  static FileIdentity Of(const struct stat& st) {
    FileIdentity id;
    id.device = st.st_dev;
    id.inode = st.st_ino;
    id.size = st.st_size;
    id.modified = std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    id.changed = std::int64_t(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
    id.exists = true;
    return id;
  }
  bool operator==(const FileIdentity& o) const {
    return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
           modified == o.modified && changed == o.changed;
  }
  // Untouched long enough that a change would have shown in its times.
  bool Settled() const {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t current = std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
    return !exists ||
           (current - modified > kSettledNanoseconds && current - changed > kSettledNanoseconds);
  }
};

struct Snapshot {
  std::string file; // the store file, links followed
  FileIdentity identity;
  std::size_t hash = 0; // of the file's bytes
  std::size_t size = 0;
  std::shared_ptr<Tree> tree;
};

std::mutex gSnapshotMutex;
std::atomic<DWORD> gParses{0};

Snapshot& CachedSnapshot() {
  static Snapshot* snapshot = new Snapshot;
  return *snapshot;
}

std::size_t HashOf(const std::string& bytes) { return std::hash<std::string>()(bytes); }

// The cached tree of `file` when `matches` holds for the snapshot; null
// otherwise. `take` moves it out of the cache, for a writer that changes it
// (only when no reader holds it).
template <typename Matches>
std::shared_ptr<Tree> Cached(const std::string& file, bool take, Matches matches) {
  std::lock_guard<std::mutex> lock(gSnapshotMutex);
  Snapshot& cached = CachedSnapshot();
  if (!cached.tree || cached.file != file || !matches(cached))
    return nullptr;
  if (!take)
    return cached.tree;
  if (cached.tree.use_count() != 1)
    return nullptr;
  std::shared_ptr<Tree> tree = std::move(cached.tree);
  cached.tree.reset();
  return tree;
}

// `hash` is HashOf(bytes), which the caller has at hand (a reader computed
// it to compare with the snapshot): hashing a large store twice would be a
// second pass over all of its bytes.
void Remember(const std::string& file, const FileIdentity& identity, const std::string& bytes,
              std::size_t hash, std::shared_ptr<Tree> tree) {
  std::lock_guard<std::mutex> lock(gSnapshotMutex);
  Snapshot& cached = CachedSnapshot();
  cached.tree.reset();
  cached.file = file;
  cached.identity = identity;
  cached.hash = hash;
  cached.size = bytes.size();
  cached.tree = std::move(tree);
}

void Forget() {
  std::lock_guard<std::mutex> lock(gSnapshotMutex);
  CachedSnapshot().tree.reset();
}

bool ReadAll(int fd, std::size_t expected, std::string* bytes) {
  bytes->clear();
  bytes->reserve(expected);
  char buffer[65536];
  while (true) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0)
      return false;
    if (n == 0)
      return true;
    bytes->append(buffer, static_cast<std::size_t>(n));
  }
}

// Reads the store `file` (links followed) into a tree, or takes the
// snapshot of it when the file has not changed since. A missing file is an
// empty store. `forChange` asks for a tree the caller may change.
LONG LoadStore(const std::string& file, bool forChange, std::shared_ptr<Tree>* tree) {
  Descriptor fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno != ENOENT && errno != ENOTDIR)
      return FailWith(ERROR_CANTREAD, ErrnoText("cannot read registry store", file));
    const FileIdentity missing;
    *tree = Cached(file, forChange, [&](const Snapshot& c) { return c.identity == missing; });
    if (!*tree) {
      *tree = std::make_shared<Tree>();
      if (!forChange)
        Remember(file, missing, std::string(), HashOf(std::string()), *tree);
    }
    return ERROR_SUCCESS;
  }
  struct stat st;
  if (fstat(fd.get(), &st) != 0)
    return FailWith(ERROR_CANTREAD, ErrnoText("cannot read registry store", file));
  if (S_ISDIR(st.st_mode)) {
    errno = EISDIR;
    return FailWith(ERROR_CANTREAD, ErrnoText("cannot read registry store", file));
  }
  const FileIdentity identity = FileIdentity::Of(st);
  const bool settled = identity.Settled();
  *tree =
      Cached(file, forChange, [&](const Snapshot& c) { return settled && c.identity == identity; });
  if (*tree)
    return ERROR_SUCCESS;
  std::string bytes;
  if (!ReadAll(fd.get(), static_cast<std::size_t>(st.st_size), &bytes))
    return FailWith(ERROR_CANTREAD, ErrnoText("cannot read registry store", file));
  const std::size_t hash = HashOf(bytes);
  *tree = Cached(file, forChange, [&](const Snapshot& c) {
    return c.identity.exists && c.size == bytes.size() && c.hash == hash;
  });
  if (*tree) {
    if (!forChange) {
      std::lock_guard<std::mutex> lock(gSnapshotMutex);
      CachedSnapshot().identity = identity; // the same bytes under a newer identity
    }
    return ERROR_SUCCESS;
  }
  ++gParses;
  std::vector<regfile::Entry> entries;
  regfile::ParseError error;
  if (!regfile::Parse(bytes, &entries, &error))
    return FailWith(ERROR_BADDB, file + ":" + std::to_string(error.line) + ": " + error.message);
  auto loaded = std::make_shared<Tree>();
  // The tree copies the values' names and data out of the statements, which
  // go right after, instead of moving them: moving takes fewer instructions,
  // but a tree whose data lies scattered among the statements' freed blocks
  // made a load of 10,000 keys (which also releases the tree before it) take
  // half as long again.
  regfile::Apply(entries, loaded.get());
  *tree = loaded;
  if (!forChange)
    Remember(file, identity, bytes, hash, std::move(loaded));
  return ERROR_SUCCESS;
}

bool WriteAll(int fd, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const std::size_t step = std::min(kWriteStep, bytes.size() - done);
    ssize_t n = write(fd, bytes.data() + done, step);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return false;
    done += static_cast<std::size_t>(n);
    Step();
  }
  return true;
}

// Replaces the store `file` (links followed) with `tree`: the whole text
// made first, then written to "<file>.tmp" beside it, flushed to disk,
// renamed over the store and the directory flushed, so that the store is
// the old content or the new one whatever stops the writer. Only the
// holder of the writer lock writes the temporary file; one left by a
// writer that was killed is overwritten by the next. The store keeps its
// permissions. On success the tree becomes the snapshot of the new file.
LONG SaveStore(const std::string& file, std::shared_ptr<Tree> tree) {
  const std::string bytes = regfile::Write(*tree, regfile::Encoding::kUtf8);
  const std::string temp = file + ".tmp";
  mode_t mode = 0666;
  struct stat st;
  if (stat(file.c_str(), &st) == 0)
    mode = st.st_mode & 07777;
  Descriptor fd(open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (fd.get() < 0)
    return FailWith(ERROR_CANTWRITE, ErrnoText("cannot write registry store", temp));
  Step();
  // Explicitly, so that the process's umask does not narrow it.
  if (!(fchmod(fd.get(), mode) == 0 && WriteAll(fd.get(), bytes) && fsync(fd.get()) == 0 &&
        (Step(), fd.Close()))) {
    int saved = errno;
    fd.Close();
    unlink(temp.c_str());
    errno = saved;
    return FailWith(ERROR_CANTWRITE, ErrnoText("cannot write registry store", temp));
  }
  if (rename(temp.c_str(), file.c_str()) != 0) {
    int saved = errno;
    unlink(temp.c_str());
    errno = saved;
    return FailWith(ERROR_CANTWRITE, ErrnoText("cannot replace registry store", file));
  }
  Step();
  // The rename itself reaches the disk with the directory.
  Descriptor directory(open(DirectoryOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() >= 0)
    fsync(directory.get());
  Step();
  if (stat(file.c_str(), &st) == 0)
    Remember(file, FileIdentity::Of(st), bytes, HashOf(bytes), std::move(tree));
  return ERROR_SUCCESS;
}

// Holds the store's writer lock for its lifetime. Writers in other processes
// (and other threads: each lock has its own open file) wait for it. The
// lock file is "<store>.lock" beside the store file (links followed), so
// that writers that name the store through a link and through its target
// queue on the same lock. A writer that is killed holds it no longer.
class WriterLock {
public:
  explicit WriterLock(const std::string& storeFile) {
    std::string lockPath = storeFile + ".lock";
    if (!MakeParentDirectories(lockPath)) {
      m_error = ErrnoText("cannot create the directory of", storeFile);
      return;
    }
    m_fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (m_fd < 0) {
      m_error = ErrnoText("cannot open lock file", lockPath);
      return;
    }
    while (flock(m_fd, LOCK_EX) != 0) {
      if (errno != EINTR) {
        m_error = ErrnoText("cannot lock", lockPath);
        close(m_fd);
        m_fd = -1;
        return;
      }
    }
  }
  ~WriterLock() {
    if (m_fd >= 0) {
      flock(m_fd, LOCK_UN);
      close(m_fd);
    }
  }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  bool Held() const { return m_fd >= 0; }
  const std::string& Error() const { return m_error; }

private:
  int m_fd = -1;
  std::string m_error;
};

// Runs `read` on a snapshot of the store.
template <typename F>
LONG ReadStore(F&& read) {
  std::shared_ptr<Tree> tree;
  LONG rc = LoadStore(FollowLinks(StorePath()), /*forChange=*/false, &tree);
  if (rc != ERROR_SUCCESS)
    return rc;
  return read(static_cast<const Tree&>(*tree));
}

// Runs `change` on the current store under the writer lock; `change` returns
// its result and sets `*changed` when the store must be written back.
template <typename F>
LONG ChangeStore(F&& change) {
  const std::string file = FollowLinks(StorePath());
  WriterLock lock(file);
  if (!lock.Held())
    return FailWith(ERROR_CANTWRITE, lock.Error());
  Step();
  std::shared_ptr<Tree> tree;
  LONG rc = LoadStore(file, /*forChange=*/true, &tree);
  if (rc != ERROR_SUCCESS)
    return rc;
  Step();
  bool changed = false;
  try {
    rc = change(*tree, &changed);
    if (changed) {
      LONG saved = SaveStore(file, tree);
      if (saved != ERROR_SUCCESS)
        return saved;
    }
  } catch (...) {
    // The tree may be half changed: the next reader reads the file again.
    Forget();
    throw;
  }
  return rc;
}

// The key a handle names, or null when it has been deleted.
Key* Resolve(Tree& tree, RegKey key) { return tree.RootKey(key->root).Find(key->path); }
const Key* Resolve(const Tree& tree, RegKey key) { return tree.RootKey(key->root).Find(key->path); }

bool ValidName(const char* name) {
  for (const char* p = name; p && *p; ++p)
    if (static_cast<unsigned char>(*p) < 0x20)
      return false;
  return true;
}

LONG CopyOut(const std::vector<BYTE>& data, DWORD type, DWORD* typeOut, BYTE* out, DWORD* size) {
  if (out && !size)
    return Fail(ERROR_INVALID_PARAMETER);
  if (typeOut)
    *typeOut = type;
  if (!size)
    return Succeed();
  DWORD needed = static_cast<DWORD>(data.size());
  if (out) {
    if (*size < needed) {
      *size = needed;
      return Fail(ERROR_MORE_DATA);
    }
    if (needed)
      std::memcpy(out, data.data(), needed);
  }
  *size = needed;
  return Succeed();
}

LONG CopyName(const std::string& name, char* out, DWORD* size) {
  if (!out || !size)
    return Fail(ERROR_INVALID_PARAMETER);
  if (*size <= name.size())
    return Fail(ERROR_MORE_DATA);
  std::memcpy(out, name.c_str(), name.size() + 1);
  *size = static_cast<DWORD>(name.size());
  return Succeed();
}

// Checks the handle and its access (none needed when `access` is 0), then
// runs `read(tree, key)` on the key the handle names in a snapshot of the store.
template <typename F>
LONG ReadKey(RegKey handle, DWORD access, F&& read) {
  if (!IsValidHandle(handle))
    return Fail(ERROR_INVALID_HANDLE);
  if (access && !(handle->access & access))
    return Fail(ERROR_ACCESS_DENIED);
  return ReadStore([&](const Tree& tree) -> LONG {
    const Key* key = Resolve(tree, handle);
    if (!key)
      return Fail(ERROR_KEY_DELETED);
    return read(tree, *key);
  });
}

// The same for changes: `change(tree, key, &changed)` under the writer lock.
template <typename F>
LONG ChangeKey(RegKey handle, DWORD access, F&& change) {
  if (!IsValidHandle(handle))
    return Fail(ERROR_INVALID_HANDLE);
  if (access && !(handle->access & access))
    return Fail(ERROR_ACCESS_DENIED);
  return ChangeStore([&](Tree& tree, bool* changed) -> LONG {
    Key* key = Resolve(tree, handle);
    if (!key)
      return Fail(ERROR_KEY_DELETED);
    return change(tree, *key, changed);
  });
}

// A sub-key argument: null or empty for the key itself, no leading backslash.
// Keys nest at most kMaxKeyDepth deep, counting the parent's own path.
bool SplitSubKey(RegKey parent, const char* subKey, std::vector<std::string>* names) {
  return !(subKey && *subKey == '\\') && regfile::SplitKeyPath(subKey ? subKey : "", names) &&
         (!IsValidHandle(parent) || parent->path.size() + names->size() <= regfile::kMaxKeyDepth);
}

std::vector<std::string> Join(const std::vector<std::string>& path,
                              const std::vector<std::string>& names) {
  std::vector<std::string> full = path;
  full.insert(full.end(), names.begin(), names.end());
  return full;
}

// Deletes the key `subKey` below `parent`; with `recursive` false it must have
// no sub-keys. A recursive delete of the parent itself (empty `subKey`)
// empties it and keeps it, as RegDeleteTreeA does.
LONG DeleteKey(RegKey parent, const char* subKey, bool recursive) {
  std::vector<std::string> names;
  if (!SplitSubKey(parent, subKey, &names))
    return IsValidHandle(parent) ? Fail(ERROR_BAD_PATHNAME) : Fail(ERROR_INVALID_HANDLE);
  return ChangeKey(parent, 0, [&](Tree& tree, Key& base, bool* changed) -> LONG {
    Key* target = base.Find(names);
    if (!target)
      return Fail(ERROR_FILE_NOT_FOUND);
    if (recursive && names.empty()) {
      *changed = !target->subKeys.empty() || !target->values.empty();
      target->subKeys.clear();
      target->values.clear();
      return Succeed();
    }
    std::vector<std::string> full = Join(parent->path, names);
    if (full.empty())
      return Fail(ERROR_ACCESS_DENIED); // a hive cannot be deleted
    if (!recursive && !target->subKeys.empty())
      return Fail(ERROR_ACCESS_DENIED);
    std::string last = full.back();
    full.pop_back();
    tree.RootKey(parent->root).Find(full)->RemoveSubKey(last);
    *changed = true;
    return Succeed();
  });
}

} // namespace

RegKey const kRegLocalMachine = &gLocalMachine;
RegKey const kRegCurrentUser = &gCurrentUser;

LONG OpenRegKey(RegKey parent, const char* subKey, DWORD access, RegKey* result) {
  if (!result)
    return Fail(ERROR_INVALID_PARAMETER);
  *result = nullptr;
  std::vector<std::string> names;
  if (!SplitSubKey(parent, subKey, &names))
    return IsValidHandle(parent) ? Fail(ERROR_BAD_PATHNAME) : Fail(ERROR_INVALID_HANDLE);
  return ReadKey(parent, 0, [&](const Tree&, const Key& base) -> LONG {
    if (!base.Find(names))
      return Fail(ERROR_FILE_NOT_FOUND);
    *result = NewHandle(parent->root, Join(parent->path, names), access);
    return Succeed();
  });
}

LONG CreateRegKey(RegKey parent, const char* subKey, const char* /*className*/, DWORD access,
                  RegKey* result, DWORD* disposition) {
  if (!result)
    return Fail(ERROR_INVALID_PARAMETER);
  *result = nullptr;
  std::vector<std::string> names;
  if (!SplitSubKey(parent, subKey, &names))
    return IsValidHandle(parent) ? Fail(ERROR_BAD_PATHNAME) : Fail(ERROR_INVALID_HANDLE);
  return ChangeKey(parent, 0, [&](Tree&, Key& base, bool* changed) -> LONG {
    // Creating needs the parent's right to create; opening what exists does not.
    if (!base.Find(names) && !(parent->access & kKeyCreateSubKey))
      return Fail(ERROR_ACCESS_DENIED);
    Key* key = &base;
    for (const std::string& name : names) {
      bool created = false;
      key = key->AddSubKey(name, &created);
      *changed = *changed || created;
    }
    if (disposition)
      *disposition = *changed ? kRegCreatedNewKey : kRegOpenedExistingKey;
    *result = NewHandle(parent->root, Join(parent->path, names), access);
    return Succeed();
  });
}

LONG CloseRegKey(RegKey key) {
  if (!key)
    return Fail(ERROR_INVALID_HANDLE);
  if (IsRootHandle(key))
    return Succeed();
  {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    if (LiveHandles().erase(key) == 0)
      return Fail(ERROR_INVALID_HANDLE);
  }
  delete key;
  return Succeed();
}

LONG QueryRegValue(RegKey key, const char* name, DWORD* type, BYTE* data, DWORD* size) {
  return ReadKey(key, kKeyQueryValue, [&](const Tree&, const Key& k) -> LONG {
    const regfile::Value* value = k.FindValue(name ? name : "");
    if (!value)
      return Fail(ERROR_FILE_NOT_FOUND);
    return CopyOut(value->data, value->type, type, data, size);
  });
}

LONG SetRegValue(RegKey key, const char* name, DWORD type, const BYTE* data, DWORD size) {
  // A .reg file cannot write a line break inside a value name.
  if (IsValidHandle(key) && (!ValidName(name) || (size && !data)))
    return Fail(ERROR_INVALID_PARAMETER);
  std::vector<BYTE> bytes(data, data + (data ? size : 0));
  return ChangeKey(key, kKeySetValue, [&](Tree&, Key& k, bool* changed) -> LONG {
    k.SetValue(name ? name : "", type, std::move(bytes));
    *changed = true;
    return Succeed();
  });
}

LONG DeleteRegValue(RegKey key, const char* name) {
  return ChangeKey(key, kKeySetValue, [&](Tree&, Key& k, bool* changed) -> LONG {
    if (!k.RemoveValue(name ? name : ""))
      return Fail(ERROR_FILE_NOT_FOUND);
    *changed = true;
    return Succeed();
  });
}

LONG DeleteRegKey(RegKey parent, const char* subKey) { return DeleteKey(parent, subKey, false); }

LONG DeleteRegTree(RegKey parent, const char* subKey) { return DeleteKey(parent, subKey, true); }

LONG EnumRegKey(RegKey key, DWORD index, char* name, DWORD* nameSize) {
  return ReadKey(key, kKeyEnumerateSubKeys, [&](const Tree&, const Key& k) -> LONG {
    if (index >= k.subKeys.size())
      return Fail(ERROR_NO_MORE_ITEMS);
    return CopyName(k.subKeys[index]->name, name, nameSize);
  });
}

LONG EnumRegValue(RegKey key, DWORD index, char* name, DWORD* nameSize, DWORD* type, BYTE* data,
                  DWORD* dataSize) {
  return ReadKey(key, kKeyQueryValue, [&](const Tree&, const Key& k) -> LONG {
    if (index >= k.values.size())
      return Fail(ERROR_NO_MORE_ITEMS);
    const regfile::Value& value = k.values[index];
    LONG rc = CopyName(value.name, name, nameSize);
    if (rc != ERROR_SUCCESS)
      return rc;
    return CopyOut(value.data, value.type, type, data, dataSize);
  });
}

LONG QueryRegKeyInfo(RegKey key, DWORD* subKeys, DWORD* maxSubKeyLength, DWORD* values,
                     DWORD* maxValueNameLength, DWORD* maxValueLength) {
  return ReadKey(key, kKeyQueryValue, [&](const Tree&, const Key& k) -> LONG {
    DWORD maxSub = 0, maxName = 0, maxData = 0;
    for (const auto& sub : k.subKeys)
      maxSub = std::max<DWORD>(maxSub, static_cast<DWORD>(sub->name.size()));
    for (const auto& v : k.values) {
      maxName = std::max<DWORD>(maxName, static_cast<DWORD>(v.name.size()));
      maxData = std::max<DWORD>(maxData, static_cast<DWORD>(v.data.size()));
    }
    if (subKeys)
      *subKeys = static_cast<DWORD>(k.subKeys.size());
    if (maxSubKeyLength)
      *maxSubKeyLength = maxSub;
    if (values)
      *values = static_cast<DWORD>(k.values.size());
    if (maxValueNameLength)
      *maxValueNameLength = maxName;
    if (maxValueLength)
      *maxValueLength = maxData;
    return Succeed();
  });
}

std::string RegLastErrorText() { return tLastError; }

std::string RegStoreDescription() { return StorePath(); }

DWORD RegStoreParses() { return gParses; }

} // namespace native
} // namespace qvbase
