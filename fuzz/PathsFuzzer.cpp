// The path utility, against a second reading of its rules on the standard library's texts. The input says what the
// system answers, and which path is asked about; paths are made of pieces that mean something to the rules.
#include "fuzz/ReferenceText.h"
#include "fuzz/Require.h"
#include "paths/KVLocalPaths.h"
#include "support/ScriptedLookups.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdlib>

namespace {

using Text = std::u16string;
using MaybeText = std::optional<Text>;

constexpr std::array kPieces = {u"/var/root",
                                u"/private/var/root",
                                u"/Users/user1",
                                u"/",
                                u"//",
                                u"/var",
                                u"/root",
                                u"root",
                                u"less",
                                u"/private",
                                u"/Users",
                                u"user1",
                                u"Shared",
                                u"/usr",
                                u"local",
                                u"/System",
                                u"/Library",
                                u"Logs",
                                u"Preferences",
                                u"/Cache",
                                u"t",
                                u"/Volumes",
                                u"Volumes",
                                u"/Backups.backupdb",
                                u"Backups.backupdb",
                                u".old",
                                u"loginwindow",
                                u"/Applications",
                                u"Utilities",
                                u"/Desktop",
                                u"/Documents",
                                u"/Application Support",
                                u"Documentation"};

Text pathFrom(FuzzedDataProvider &input)
{
    Text path;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 6); left > 0; --left) {
        const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, kPieces.size());
        path += choice < kPieces.size() ? Text(kPieces.at(choice))
                                        : Text(1, input.ConsumeIntegralInRange<char16_t>(0, 0xFFFF));
    }
    return path;
}

MaybeText maybePathFrom(FuzzedDataProvider &input)
{
    return input.ConsumeIntegralInRange(0, 7) == 0 ? std::nullopt : MaybeText(pathFrom(input));
}

std::optional<QString> asText(const MaybeText &units)
{
    return units ? std::optional(reference::text(*units)) : std::nullopt;
}

/// What the system answers, once more for the second reading.
struct Answers {
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::vector<Text>> directories;
    bool isRoot = false;
    MaybeText home;
    MaybeText console;
    MaybeText consoleHome;
    MaybeText homeOfNobody;
    MaybeText temporary;
    std::optional<std::string> cache;
    std::uint64_t seconds = 0;
    std::uint64_t ticks = 0;
};

constexpr std::array<std::uint64_t, 9> kKinds = {1, 4, 5, 8, 9, 12, 13, 14, 17};
constexpr std::array<std::uint64_t, 4> kMasks = {1, 2, 3, 8};

Answers answersFrom(FuzzedDataProvider &input)
{
    Answers answers;
    answers.isRoot = input.ConsumeBool();
    for (auto left = input.ConsumeIntegralInRange<int>(0, 6); left > 0; --left) {
        const std::uint64_t kind = input.PickValueInArray(kKinds);
        auto &places = answers.directories[{kind, input.PickValueInArray(kMasks)}];
        for (auto more = input.ConsumeIntegralInRange<int>(0, 2); more > 0; --more) {
            places.push_back(pathFrom(input));
        }
    }
    answers.home = maybePathFrom(input);
    answers.console = maybePathFrom(input);
    answers.consoleHome = maybePathFrom(input);
    answers.homeOfNobody = maybePathFrom(input);
    answers.temporary = maybePathFrom(input);
    answers.seconds = input.ConsumeIntegral<std::uint64_t>();
    answers.ticks = input.ConsumeIntegral<std::uint64_t>();
    if (input.ConsumeBool()) {
        // Around the size of the buffer that it is read into.
        const auto fill = input.ConsumeBool() ? input.ConsumeIntegralInRange<std::size_t>(1015, 1030) : 0;
        answers.cache = std::string(fill, 'c') + input.ConsumeRandomLengthString(16);
    }
    return answers;
}

void script(ScriptedLookups &lookups, const Answers &answers)
{
    lookups.userId = answers.isRoot ? 0 : 1000;
    lookups.home = asText(answers.home);
    lookups.homes.clear();
    lookups.consoleUser = asText(answers.console);
    if (answers.console && answers.consoleHome) {
        lookups.homes[reference::text(*answers.console)] = reference::text(*answers.consoleHome);
    }
    lookups.homeOfNobody = asText(answers.homeOfNobody);
    lookups.temporary = asText(answers.temporary);
    lookups.seconds = static_cast<std::time_t>(answers.seconds);
    lookups.ticks = static_cast<std::clock_t>(answers.ticks);
    for (const auto &[place, paths] : answers.directories) {
        for (const Text &path : paths) {
            lookups.directories[place].append(reference::text(path));
        }
    }
    if (answers.cache) {
        lookups.userCacheDirectory = {QByteArray::fromStdString(*answers.cache)};
    }
}

MaybeText joined(const MaybeText &path, const Text &component)
{
    const std::size_t name = component.find_first_not_of(u'/');
    if (!path || name == Text::npos) {
        return path;
    }
    if (path->empty()) {
        return component;
    }
    const std::size_t last = path->find_last_not_of(u'/');
    return (last == Text::npos ? Text() : path->substr(0, last + 1)) + u'/' + component.substr(name);
}

/// The utility once more, from its answers.
class Reference
{
public:
    explicit Reference(const Answers &given)
        : answers(given)
    {
    }

    MaybeText console() const { return answers.console == u"loginwindow" ? std::nullopt : answers.console; }

    MaybeText userDirectory() const
    {
        if (!answers.isRoot) {
            return answers.home;
        }
        return console() ? answers.consoleHome : answers.homeOfNobody;
    }

    MaybeText path(std::uint64_t kind, std::uint64_t mask) const
    {
        const auto found = answers.directories.find({kind, mask});
        if (found == answers.directories.end() || found->second.empty()) {
            return std::nullopt;
        }
        Text first = found->second.front();
        if (!answers.isRoot || mask != 1) {
            return first;
        }
        if (first.starts_with(u"/var/root")) {
            first = first.substr(9);
        }
        if (first.starts_with(u"/private/var/root")) {
            first = first.substr(16);
        }
        return joined(userDirectory(), first);
    }

    MaybeText cache() const
    {
        if (!answers.cache) {
            return std::nullopt;
        }
        if (answers.cache->size() <= 1023) {
            return reference::decoded(*answers.cache);
        }
        for (std::size_t size = 1023; size >= 1020; --size) {
            if (MaybeText text = reference::decoded(answers.cache->substr(0, size))) {
                return text;
            }
        }
        return std::nullopt;
    }

    bool isSystemDirectory(const Text &path, bool exact) const
    {
        if (path == u"/") {
            return true;
        }
        if (path.size() < 3) {
            return false;
        }
        const Text compared = path.back() == u'/' ? path.substr(0, path.size() - 2) : path;
        std::vector<MaybeText> places = {
            path_(5, 8), path_(8, 2), path_(12, 1), userDirectory(), Text(u"/Users/Shared"), Text(u"/Volumes")};
        for (const std::uint64_t mask : {1u, 2u}) {
            for (const std::uint64_t kind : {1u, 4u, 9u, 5u, 13u, 14u}) {
                places.push_back(path_(kind, mask));
            }
            places.push_back(joined(path_(5, mask), u"Preferences"));
        }
        for (const MaybeText &place : places) {
            if (place == compared) {
                return true;
            }
        }
        return !exact
            && (compared.starts_with(u"/usr") || compared.starts_with(u"/var") || compared.starts_with(u"/private/var")
                || compared.starts_with(u"/System"));
    }

    static bool isOnBackupVolume(const Text &path)
    {
        // Between two separators, or behind the last one.
        const Text wanted = u"/Backups.backupdb/";
        return path.starts_with(u"/Volumes/") && (path + u'/').find(wanted) != Text::npos;
    }

    Text randomText(std::uint64_t length) const
    {
        std::srand(static_cast<unsigned>((answers.seconds * answers.ticks) & 0xFFFFFFFF));
        Text text;
        for (std::uint64_t i = 0; i < length; ++i) {
            text += Text(u"abcdefghijklmnopqrstuvwxyz0123456789").at(static_cast<std::size_t>(std::rand() % 36));
        }
        return text;
    }

private:
    MaybeText path_(std::uint64_t kind, std::uint64_t mask) const { return path(kind, mask); }

    const Answers &answers;
};

void checkDirectories(const Reference &expected)
{
    using Paths = KVLocalPaths;
    const auto same = [](const std::optional<QString> &given, const MaybeText &wanted, const char *rule) {
        require(reference::units(given) == wanted, rule);
    };
    for (const std::uint64_t kind : kKinds) {
        for (const std::uint64_t mask : kMasks) {
            same(Paths::pathForDirectoryForUserDomain(kind, mask), expected.path(kind, mask), "any directory");
        }
    }
    for (const bool user : {true, false}) {
        const std::uint64_t mask = user ? 1 : 2;
        same(Paths::applicationDirectory(user), expected.path(1, mask), "applications");
        same(Paths::adminApplicationDirectory(user), expected.path(4, mask), "applications of administrators");
        same(Paths::documentDirectory(user), expected.path(9, mask), "documents");
        same(Paths::libraryDirectory(user), expected.path(5, mask), "library");
        same(Paths::prefsDirectory(user), joined(expected.path(5, mask), u"Preferences"), "preferences");
        same(Paths::cacheDirectory(user), expected.path(13, mask), "caches");
        same(Paths::appSupportDirectory(user), expected.path(14, mask), "application support");
        same(Paths::logDirectory(user), joined(expected.path(5, mask), u"Logs"), "logs");
    }
    same(Paths::movieDirectory(), expected.path(17, 1), "movies");
    same(Paths::desktopDirectory(), expected.path(12, 1), "desktop");
    same(Paths::systemLibraryDirectory(), expected.path(5, 8), "library of the system");
    same(Paths::localDocumentationDirectory(), expected.path(8, 2), "documentation");
    same(Paths::userDirectory(), expected.userDirectory(), "home");
    same(Paths::trashDirectory(), joined(expected.userDirectory(), u".Trash"), "trash");
    same(Paths::currentConsoleUser(), expected.console(), "user at the console");
    same(Paths::darwinCacheDirectory(), expected.cache(), "cache directory of the system");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const Answers answers = answersFrom(input);
    ScriptedLookups lookups;
    script(lookups, answers);
    const LookupsScope scope(lookups);
    const Reference expected(answers);
    checkDirectories(expected);

    const Text path = pathFrom(input);
    for (const bool exact : {true, false}) {
        require(KVLocalPaths::isPathSystemDirectoryExactMatch(reference::text(path), exact)
                    == expected.isSystemDirectory(path, exact),
                "whether a path is the system's");
    }
    require(KVLocalPaths::isPathOnTimeMachineVolume(reference::text(path)) == Reference::isOnBackupVolume(path),
            "whether a path lies in a backup");

    const auto length = input.ConsumeIntegralInRange<std::uint64_t>(0, 40);
    require(reference::units(KVLocalPaths::randomString(length)) == expected.randomText(length), "a random text");
    require(reference::units(KVLocalPaths::tempFile()) == joined(answers.temporary, u"unique" + expected.randomText(8)),
            "a temporary name");
    return 0;
}
