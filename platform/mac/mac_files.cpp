#include "platform/mac/mac_files.h"

#include <CoreServices/CoreServices.h>
#include <Security/Security.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/attr.h>
#include <sys/paths.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <span>
#include <string>

#include "platform/attribute_reply.h"
#include "platform/descriptor.h"
#include "platform/mac/cf_holder.h"
#include "platform/mac/cf_values.h"

#if __has_include(<sys/vnode.h>)
#include <sys/vnode.h>
static_assert(VREG == static_cast<int>(platform::ObjectType::kRegular));
static_assert(VDIR == static_cast<int>(platform::ObjectType::kDirectory));
static_assert(VBLK == static_cast<int>(platform::ObjectType::kBlockDevice));
static_assert(VCHR == static_cast<int>(platform::ObjectType::kCharacterDevice));
static_assert(VLNK == static_cast<int>(platform::ObjectType::kSymbolicLink));
static_assert(VSOCK == static_cast<int>(platform::ObjectType::kSocket));
static_assert(VFIFO == static_cast<int>(platform::ObjectType::kFifo));
#endif

namespace platform {
namespace {

static_assert(ATTR_CMN_FNDRINFO == kCommonFinderInfo);
static_assert(sizeof(attribute_set_t) == kReturnedSetBytes);
static_assert(sizeof(timespec) == 16, "the replies are decoded as a 64-bit process gets them");

constexpr const char* kVersionPropertyList = "/System/Library/CoreServices/SystemVersion.plist";
constexpr std::size_t kForkPieceBytes = 256 * 1024;

/// Zeroed for each query: what the kernel leaves out stays as it was.
using ReplyBuffer = std::array<std::byte, 256>;
static_assert(sizeof(ReplyBuffer) >= kFileReplyBytes);

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

attrlist EntryRequest(bool withReturnedSet) {
  attrlist request{};
  request.bitmapcount = ATTR_BIT_MAP_COUNT;
  request.commonattr =
      ATTR_CMN_OBJTYPE | ATTR_CMN_CRTIME | ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME | ATTR_CMN_FNDRINFO | ATTR_CMN_FLAGS;
  if (withReturnedSet) request.commonattr |= ATTR_CMN_RETURNED_ATTRS;
  request.fileattr = ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_DATALENGTH | ATTR_FILE_RSRCLENGTH;
  return request;
}

/// Packing invalid attributes needs the returned set: EINVAL without it.
constexpr unsigned EntryOptions(bool withReturnedSet) {
  return FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE | (withReturnedSet ? FSOPT_PACK_INVAL_ATTRS : 0U);
}

/// Relative to the open directory: a deep tree's full paths would exceed PATH_MAX, and no folder on the way there is
/// looked up, so none can mount or fetch anything.
int QueryRelative(int directory, const char* name, EntryAttributes& attributes) {
  attrlist request = EntryRequest(true);
  ReplyBuffer reply{};
  if (getattrlistat(directory, name, &request, reply.data(), reply.size(), EntryOptions(true)) != 0) return errno;
  return DecodeEntryReply(reply, true, attributes) ? 0 : EBADMSG;
}

/// Whether the system knows the set of returned attributes. 10.5 does not.
bool KnowsReturnedSet() {
  static const bool knows = [] {
    std::string version;
    TheMachine().ReadProductVersion(kVersionPropertyList, version);
    return !version.starts_with("10.5");
  }();
  return knows;
}

bool IsDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// An errno value, 0 at the end of the directory or when the visitor stopped.
int VisitEntries(DIR* directory, const char* path, EntryVisitor& visitor) {
  for (;;) {
    errno = 0;  // null is both the end and an error: an unreadable rest must not pass for the end
    const dirent* entry = readdir(directory);
    if (entry == nullptr) return errno == 0 ? 0 : ReadErrnoOf(path, errno);
    if (IsDotOrDotDot(entry->d_name)) continue;
    EntryAttributes attributes;
    const int error = QueryRelative(dirfd(directory), entry->d_name, attributes);
    if (!visitor.OnEntry(entry->d_name, error, attributes)) return 0;
  }
}

int OpenDirectory(const char* path) {
  int directory = -1;
  do {
    directory = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
  } while (directory < 0 && errno == EINTR);
  return directory;
}

int ReadToEnd(int descriptor, std::string& bytes) {
  bytes.clear();
  for (;;) {
    const std::size_t before = bytes.size();
    bytes.resize(before + kForkPieceBytes);
    std::size_t got = 0;
    const int error = TheFiles().Read(descriptor, bytes.data() + before, kForkPieceBytes, got);
    bytes.resize(before + (error == 0 ? got : 0));
    if (error != 0 || got == 0) return error;
  }
}

}  // namespace

ListResult MacFiles::ListDirectory(const char* path, EntryVisitor& visitor) {
  ListResult result;
  const int descriptor = OpenDirectory(path);
  if (descriptor < 0) {
    result.openErrno = errno;
    return result;
  }
  const Directory directory(fdopendir(descriptor), closedir);
  if (!directory) {
    result.openErrno = errno;
    close(descriptor);
    return result;
  }
  result.readErrno = VisitEntries(directory.get(), path, visitor);
  return result;
}

/// The privacy protection refuses with EPERM, even the superuser; missing permissions are EACCES. Nothing can be asked
/// for from a background process: Full Disk Access is the only remedy.
bool MacFiles::IsPrivacyDenial(int error) {
  return error == EPERM;
}

int MacFiles::QueryEntry(const char* path, EntryAttributes& attributes) {
  const bool withReturnedSet = KnowsReturnedSet();
  attrlist request = EntryRequest(withReturnedSet);
  ReplyBuffer reply{};
  if (getattrlist(path, &request, reply.data(), reply.size(), EntryOptions(withReturnedSet)) != 0) return errno;
  return DecodeEntryReply(reply, withReturnedSet, attributes) ? 0 : EBADMSG;
}

int MacFiles::QueryFinderFlags(const char* path, std::uint16_t& finderFlags) {
  attrlist request{};
  request.bitmapcount = ATTR_BIT_MAP_COUNT;
  request.commonattr = ATTR_CMN_OBJTYPE | ATTR_CMN_FNDRINFO;
  ReplyBuffer reply{};
  const unsigned options = FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE;
  if (getattrlist(path, &request, reply.data(), reply.size(), options) != 0) return errno;
  return DecodeFinderReply(reply, finderFlags) ? 0 : EBADMSG;
}

int MacFiles::QueryBackupExclusion(const char* path, bool& excluded) {
  const CfHolder<CFURLRef> url = FileUrlOf(path);
  if (!url) return EINVAL;
  Boolean isByPath = 0;  // whether the mark is on the path instead of the item makes no difference here
  excluded = CSBackupIsItemExcluded(url.Get(), &isByPath) != 0;
  return 0;
}

int MacFiles::QueryMountIdentity(const char* path, MountIdentity& identity) {
  return mounts_.Identify(path, identity);
}

int MacFiles::ReadResourceFork(const char* path, std::string& bytes) {
  Descriptor fork;
  const int error = fork.Open((std::string(path) + _PATH_RSRCFORKSPEC).c_str(), OpenMode::kRead);
  return error == 0 ? ReadToEnd(fork.Get(), bytes) : error;
}

bool MacFiles::HasValidCodeSignature(const char* path) {
  const CfHolder<CFURLRef> url = FileUrlOf(path);
  CfHolder<SecStaticCodeRef> code;
  if (!url || SecStaticCodeCreateWithPath(url.Get(), kSecCSDefaultFlags, code.Receive()) != errSecSuccess) return false;
  const SecCSFlags flags = kSecCSCheckAllArchitectures | kSecCSStrictValidate;
  return code && SecStaticCodeCheckValidity(code.Get(), flags, nullptr) == errSecSuccess;
}

int MacFiles::MakeHiddenDirectory(const char* path, unsigned mode) {
  const int error = MakeDirectory(path, mode);
  // Never through a link that somebody put in the new folder's place.
  if (error == 0) lchflags(path, UF_HIDDEN);
  return error;
}

}  // namespace platform
