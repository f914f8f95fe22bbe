// The functions of libcurl, in a library that is loaded at the first transfer.
#pragma once

#include <QString>

#include <curl/curl.h>

#include <memory>

/// Linked, libcurl and the forty libraries that it needs would cost each start of the program milliseconds, and most
/// starts send nothing. The names are those of libcurl without their prefix.
struct CurlLibrary {
    decltype(&curl_global_init) globalInit = nullptr;
    decltype(&curl_version_info) versionInfo = nullptr;
    decltype(&curl_slist_append) slistAppend = nullptr;
    decltype(&curl_slist_free_all) slistFreeAll = nullptr;
    decltype(&curl_easy_init) easyInit = nullptr;
    decltype(&curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&curl_easy_setopt) easySetopt = nullptr;
    decltype(&curl_easy_getinfo) easyGetinfo = nullptr;
    decltype(&curl_easy_pause) easyPause = nullptr;
    decltype(&curl_easy_strerror) easyStrerror = nullptr;
    decltype(&curl_multi_init) multiInit = nullptr;
    decltype(&curl_multi_cleanup) multiCleanup = nullptr;
    decltype(&curl_multi_setopt) multiSetopt = nullptr;
    decltype(&curl_multi_add_handle) multiAddHandle = nullptr;
    decltype(&curl_multi_remove_handle) multiRemoveHandle = nullptr;
    decltype(&curl_multi_socket_action) multiSocketAction = nullptr;
    decltype(&curl_multi_info_read) multiInfoRead = nullptr;
    /// curl_multi_socket_all, which is deprecated and the only function that does what CurlMulti::wake needs.
    CURLMcode (*multiSocketAll)(CURLM *multi, int *running) = nullptr;

    /// Loads the library of that name and version of its interface, such as "curl" and 4, where the system keeps its
    /// libraries. Gives a null pointer when it cannot be loaded or is too old. What is loaded once stays loaded.
    static std::shared_ptr<const CurlLibrary> load(const QString &name, int version);
};
