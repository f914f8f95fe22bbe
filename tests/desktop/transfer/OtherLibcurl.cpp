// A library with the names of libcurl's functions, of which two say what a test wants and the others do nothing.
#include <cstdlib>

namespace {

/// How what curl_version_info(3) returns begins.
struct VersionInfo {
    int age;
    const char *version;
    unsigned versionNumber;
};

} // namespace

extern "C" {

int curl_global_init(long /*flags*/)
{
    return std::getenv("OTHER_LIBCURL_FAILS") ? 1 : 0;
}

const VersionInfo *curl_version_info(int /*age*/)
{
    static VersionInfo info = {};
    const char *const number = std::getenv("OTHER_LIBCURL_VERSION");
    info.versionNumber = number ? static_cast<unsigned>(std::strtoul(number, nullptr, 16)) : 0;
    return &info;
}

void curl_slist_append()
{
}
void curl_slist_free_all()
{
}
void curl_easy_init()
{
}
void curl_easy_cleanup()
{
}
void curl_easy_setopt()
{
}
void curl_easy_getinfo()
{
}
void curl_easy_pause()
{
}
void curl_easy_strerror()
{
}
void curl_multi_init()
{
}
void curl_multi_cleanup()
{
}
void curl_multi_setopt()
{
}
void curl_multi_add_handle()
{
}
void curl_multi_remove_handle()
{
}
void curl_multi_socket_action()
{
}
void curl_multi_info_read()
{
}
void curl_multi_socket_all()
{
}
}
