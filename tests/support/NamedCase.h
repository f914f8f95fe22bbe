// What the rows of a table of cases have in common: a name, in the test's name and where the test fails.
#pragma once

#include <ostream>
#include <string>

/// The base of a row; its own members follow: {{"Name"}, ...}.
struct NamedCase {
    const char *name;
};

inline std::ostream &operator<<(std::ostream &stream, const NamedCase &named)
{
    return stream << named.name;
}

/// The last argument of INSTANTIATE_TEST_SUITE_P.
inline constexpr auto nameOfCase = [](const auto &instance) { return std::string(instance.param.name); };
