// The user's settings store over QSettings.
#pragma once

#include "platform/LocalLookups.h"
#include "platform/UserDefaults.h"

#include <QMap>
#include <QVariant>

#include <optional>

class SettingsFile;

/// Keeps the settings in Korvale/CrashReporter.conf in the user's configuration folder: $XDG_CONFIG_HOME if that is an
/// absolute path, else .config in the user's home (freedesktop.org, XDG Base Directory Specification).
///
/// Only a regular file of at most 64 KiB is a store, or a link of the user's own or of root's to one. Where there is
/// anything else, where the user has no home or no room for temporary files, or while another process holds the file's
/// folder locked (flock(2)), nothing is stored and nothing is touched: what was set is known to this object alone.
/// Where another process has stored something else meanwhile, a number is changed by as much as it was here, the later
/// date counts, and of anything else what is stored. A file is replaced as a whole, by one beside it that is on the
/// disk, or not at all; one that cannot be read, or that was changed meanwhile, is not replaced. Why something is not
/// stored is logged in the category korvale.settings.
///
/// Root's settings are in the home that its account names, and are kept only while from this home on nobody else may
/// lead root to another file: there are no links, everything is root's, and nobody else may write a folder. It is
/// looked at before each reading and writing. The way to the home, the home's own name included, is the account's
/// matter, and is trusted.
class QtUserDefaults : public platform::UserDefaults
{
public:
    /// The lookups are asked for the user's home, once.
    explicit QtUserDefaults(const platform::LocalLookups &lookups);

    qint64 integerForKey(const QString &key) const override;
    std::optional<QVariant> objectForKey(const QString &key) const override;
    void setIntegerForKey(qint64 value, const QString &key) override;
    void setObjectForKey(const QVariant &value, const QString &key) override;
    void synchronize() override;

private:
    struct Change {
        QVariant value;
        QVariant replaced; ///< What was stored when it was last asked for, as far as that was known.

        /// What counts, where this is stored.
        QVariant over(const QVariant &stored) const;
    };

    bool storeUnsavedIn(SettingsFile &file) const;
    QVariant valueForKey(const QString &key) const;
    void readStored(const QString &key) const;

    const bool isRoots;
    const std::optional<QString> store;    ///< The path of the settings; none where there is no folder for them.
    QMap<QString, Change> unsaved;         ///< What was set since the store was last written.
    mutable QMap<QString, QVariant> known; ///< What was stored of what was asked for since then.
};
