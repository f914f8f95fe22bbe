// The system's lookups of the tests of paths and reports: those that the test has scripted.
#include "support/ScriptedLookups.h"

namespace {

const ScriptedLookups *answering = nullptr;

} // namespace

LookupsScope::LookupsScope(const ScriptedLookups &lookups)
    : previous(std::exchange(answering, &lookups))
{
}

LookupsScope::~LookupsScope()
{
    answering = previous;
}

const platform::LocalLookups &platform::systemLocalLookups()
{
    static const ScriptedLookups unscripted;
    return answering ? *answering : static_cast<const platform::LocalLookups &>(unscripted);
}
