// Which look-ups are asked: the system's own or, within a scope, others.
#include "platform/LocalLookups.h"

#include <atomic>

namespace platform {

namespace {

// Atomic, because look-ups may be asked from any thread.
std::atomic<const LocalLookups *> substitute = nullptr;

} // namespace

const LocalLookups &LocalLookups::current()
{
    const LocalLookups *const lookups = substitute.load();
    return lookups ? *lookups : systemLocalLookups();
}

LocalLookupsScope::LocalLookupsScope(const LocalLookups &lookups)
    : previous(substitute.exchange(&lookups))
{
}

LocalLookupsScope::~LocalLookupsScope()
{
    substitute.store(previous);
}

} // namespace platform
