// A system's own lookups, for a process with a real user ID that a test chooses.
#pragma once

#include <cstdint>

template<typename Lookups>
class LookupsOfUserId : public Lookups
{
public:
    explicit LookupsOfUserId(std::uint32_t userId)
        : id(userId)
    {
    }

    std::uint32_t realUserId() const override { return id; }

private:
    std::uint32_t id;
};
