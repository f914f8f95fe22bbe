// The functions of macOS that the lookups call, answering from a script.
#include "macos/ScriptedSystem.h"

#include <QStringEncoder>

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <sysdir.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

ScriptedSystem *current = nullptr;

/// What an enumeration has still to give; its state is a number that only it knows, as on macOS.
std::vector<QByteArray> enumeration;
constexpr sysdir_search_path_enumeration_state kEnumerating = 0x01000000;

passwd entry = {};

passwd *entryOf(const ScriptedAccount &account)
{
    // The system's type has no const; the lookups write nothing.
    entry.pw_name = const_cast<char *>(account.name.constData());
    entry.pw_dir = const_cast<char *>(account.home.constData());
    return &entry;
}

const QString &contentOf(CFStringRef string)
{
    return *reinterpret_cast<const QString *>(string);
}

} // namespace

ScriptedSystem::ScriptedSystem()
{
    current = this;
}

ScriptedSystem::~ScriptedSystem()
{
    current = nullptr;
}

sysdir_search_path_enumeration_state sysdir_start_search_path_enumeration(sysdir_search_path_directory_t directory,
                                                                          sysdir_search_path_domain_mask_t domains)
{
    const auto found = current->directories.find({directory, domains});
    enumeration = found == current->directories.end() ? std::vector<QByteArray>() : found->second;
    return kEnumerating;
}

sysdir_search_path_enumeration_state sysdir_get_next_search_path_enumeration(sysdir_search_path_enumeration_state state,
                                                                             char *path)
{
    if (state != kEnumerating || enumeration.empty()) {
        return 0;
    }
    std::strcpy(path, enumeration.front().constData());
    enumeration.erase(enumeration.begin());
    return kEnumerating;
}

void CFRelease(CFTypeRef object)
{
    --current->stringsOut;
    delete static_cast<const QString *>(object);
}

CFIndex CFStringGetLength(CFStringRef string)
{
    return contentOf(string).size();
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding /*encoding*/)
{
    return 3 * length;
}

Boolean CFStringGetCString(CFStringRef string, char *buffer, CFIndex bufferSize, CFStringEncoding encoding)
{
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    const QByteArray bytes = encoder.encode(contentOf(string));
    if (encoding != kCFStringEncodingUTF8 || encoder.hasError() || bytes.size() >= bufferSize) {
        return false;
    }
    std::copy_n(bytes.constData(), bytes.size() + 1, buffer);
    return true;
}

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef /*store*/, uid_t * /*userId*/, gid_t * /*groupId*/)
{
    if (!current->consoleUser) {
        return nullptr;
    }
    ++current->stringsOut;
    return reinterpret_cast<CFStringRef>(new QString(*current->consoleUser));
}

// These the C library of this machine has, too. The toolkit asks them before the first test.

passwd *getpwuid(uid_t userId)
{
    if (!current) {
        return nullptr;
    }
    const auto found = current->accounts.find(userId);
    return found == current->accounts.end() ? nullptr : entryOf(found->second);
}

passwd *getpwnam(const char *name)
{
    if (!current) {
        return nullptr;
    }
    const auto found = std::find_if(current->accounts.begin(), current->accounts.end(),
                                    [name](const auto &account) { return account.second.name == name; });
    return found == current->accounts.end() ? nullptr : entryOf(found->second);
}

uid_t getuid() noexcept
{
    return current ? current->userId : static_cast<uid_t>(::syscall(SYS_getuid));
}

std::size_t confstr(int name, char *buffer, std::size_t size) noexcept
{
    if (!current || !current->configurationStrings.contains(name)) {
        return 0;
    }
    const QByteArray &value = current->configurationStrings.at(name);
    if (size > 0) {
        const std::size_t copied = std::min(static_cast<std::size_t>(value.size()), size - 1);
        std::copy_n(value.begin(), copied, buffer);
        buffer[copied] = '\0';
    }
    return static_cast<std::size_t>(value.size()) + 1;
}
