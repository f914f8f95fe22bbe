// The functions of libcurl, in a library that is loaded at the first transfer.
#include "desktop/transfer/CurlLibrary.h"

#include <QLibrary>

namespace {

/// 7.87 is the first version that a lookup does not keep from ending (CURLOPT_QUICK_EXIT).
constexpr unsigned kOldestVersion = 0x075700;

/// Looks up functions and remembers whether one was missing.
class Symbols
{
public:
    explicit Symbols(QLibrary &source)
        : library(source)
    {
    }

    template<typename Function>
    void find(const char *name, Function &function)
    {
        function = reinterpret_cast<Function>(library.resolve(name));
        complete = complete && function;
    }

    bool areComplete() const { return complete; }

private:
    QLibrary &library;
    bool complete = true;
};

bool hasAllFunctions(CurlLibrary &curl, QLibrary &library)
{
    Symbols symbols(library);
    symbols.find("curl_global_init", curl.globalInit);
    symbols.find("curl_version_info", curl.versionInfo);
    symbols.find("curl_slist_append", curl.slistAppend);
    symbols.find("curl_slist_free_all", curl.slistFreeAll);
    symbols.find("curl_easy_init", curl.easyInit);
    symbols.find("curl_easy_cleanup", curl.easyCleanup);
    symbols.find("curl_easy_setopt", curl.easySetopt);
    symbols.find("curl_easy_getinfo", curl.easyGetinfo);
    symbols.find("curl_easy_pause", curl.easyPause);
    symbols.find("curl_easy_strerror", curl.easyStrerror);
    symbols.find("curl_multi_init", curl.multiInit);
    symbols.find("curl_multi_cleanup", curl.multiCleanup);
    symbols.find("curl_multi_setopt", curl.multiSetopt);
    symbols.find("curl_multi_add_handle", curl.multiAddHandle);
    symbols.find("curl_multi_remove_handle", curl.multiRemoveHandle);
    symbols.find("curl_multi_socket_action", curl.multiSocketAction);
    symbols.find("curl_multi_info_read", curl.multiInfoRead);
    symbols.find("curl_multi_socket_all", curl.multiSocketAll);
    return symbols.areComplete();
}

} // namespace

std::shared_ptr<const CurlLibrary> CurlLibrary::load(const QString &name, int version)
{
    // It would make the TLS library write the keys of the transfer into a file of that name.
    qunsetenv("SSLKEYLOGFILE");
    QLibrary library(name, version);
    auto curl = std::make_shared<CurlLibrary>();
    if (!hasAllFunctions(*curl, library) || curl->globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK
        || curl->versionInfo(CURLVERSION_NOW)->version_num < kOldestVersion) {
        return nullptr;
    }
    return curl;
}
