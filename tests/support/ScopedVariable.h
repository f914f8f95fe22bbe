// An environment variable that a test sets or unsets, and that is as before when the test ends.
#pragma once

#include <QByteArray>

#include <optional>

class ScopedVariable
{
public:
    /// Without a value the variable is unset.
    ScopedVariable(const char *variable, const std::optional<QByteArray> &value)
        : name(variable)
        , before(qEnvironmentVariableIsSet(variable) ? std::optional(qgetenv(variable)) : std::nullopt)
    {
        set(value);
    }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;
    ~ScopedVariable() { set(before); }

private:
    void set(const std::optional<QByteArray> &value) const
    {
        if (value) {
            qputenv(name, *value);
        } else {
            qunsetenv(name);
        }
    }

    const char *name;
    std::optional<QByteArray> before;
};
