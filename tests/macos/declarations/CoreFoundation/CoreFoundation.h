// The declarations of CoreFoundation that the lookups use, for a compiler that has no macOS.
#pragma once

#include <cstdint>

extern "C" {

struct __CFString;
using CFStringRef = const __CFString *;
using CFTypeRef = const void *;
using CFIndex = long;
using CFStringEncoding = std::uint32_t;
using Boolean = unsigned char;

inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

void CFRelease(CFTypeRef object);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef string, char *buffer, CFIndex bufferSize, CFStringEncoding encoding);
}
