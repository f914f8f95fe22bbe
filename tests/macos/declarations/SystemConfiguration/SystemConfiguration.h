// The declaration of SystemConfiguration that the lookups use, for a compiler that has no macOS.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

extern "C" {

struct __SCDynamicStore;
using SCDynamicStoreRef = const __SCDynamicStore *;

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t *userId, gid_t *groupId);
}
