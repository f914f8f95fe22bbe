// A macOS whose answers a test writes down.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

struct ScriptedAccount {
    QByteArray name;
    QByteArray home;
};

/// What the functions of the system answer: they ask the one instance that lives.
struct ScriptedSystem {
    ScriptedSystem();
    ScriptedSystem(const ScriptedSystem &) = delete;
    ScriptedSystem &operator=(const ScriptedSystem &) = delete;
    ~ScriptedSystem();

    /// What is enumerated for a kind and a mask.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<QByteArray>> directories;
    std::map<std::uint32_t, ScriptedAccount> accounts;
    std::map<int, QByteArray> configurationStrings;
    std::optional<QString> consoleUser;
    std::uint32_t userId = 501; ///< The first user's; the effective one is the process's own.
    /// How many of the strings that were handed over have not been released yet.
    int stringsOut = 0;
};
