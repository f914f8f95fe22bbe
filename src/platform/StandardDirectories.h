// Where the standard directories lie where the system itself does not say: the products whose crashes are reported
// write to the same layout everywhere.
#pragma once

#include "platform/LocalLookups.h"

#include <QStringView>

#include <array>

namespace platform {

/// Where a kind of directory lies: below the home for the user, and machine-wide for the other two; empty where a
/// domain has none.
struct StandardDirectory {
    std::uint64_t kind = 0;
    QStringView user;
    QStringView local;
    QStringView system;
};

inline constexpr auto kStandardDirectories = std::to_array<StandardDirectory>({
    {directory::kApplications, u"/Applications", u"/Applications", u"/System/Applications"},
    {directory::kAdminApplications, u"/Applications/Utilities", u"/Applications/Utilities",
     u"/System/Applications/Utilities"},
    {directory::kLibrary, u"/Library", u"/Library", u"/System/Library"},
    {directory::kDocumentation, u"/Library/Documentation", u"/Library/Documentation", u"/System/Library/Documentation"},
    {directory::kDocuments, u"/Documents", {}, {}},
    {directory::kDesktop, u"/Desktop", {}, {}},
    {directory::kCaches, u"/Library/Caches", u"/Library/Caches", u"/System/Library/Caches"},
    {directory::kApplicationSupport, u"/Library/Application Support", u"/Library/Application Support", {}},
    {directory::kMovies, u"/Movies", {}, {}},
});

} // namespace platform
