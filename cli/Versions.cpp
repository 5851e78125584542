// What `veltrane --version` prints: the library's version and those of the
// libraries it runs on (libcurl and SQLite as loaded; simdjson and libplist
// as built against, for neither tells its version at run time).
#include <curl/curl.h>
#include <simdjson.h>
#include <sqlite3.h>

#include "cli/Commands.h"
#include "veltrane/Version.h"

namespace veltrane::cli {

std::string versions() {
    std::string simdjsonVersion = std::to_string(simdjson::SIMDJSON_VERSION_MAJOR) + "." + std::to_string(simdjson::SIMDJSON_VERSION_MINOR) + "." +
                                  std::to_string(simdjson::SIMDJSON_VERSION_REVISION);
    const curl_version_info_data* curl = curl_version_info(CURLVERSION_NOW);
    return std::string("veltrane ") + VELTRANE_VERSION_STRING + "\nlibcurl " + curl->version + " (" + (curl->ssl_version ? curl->ssl_version : "no TLS") +
           (curl->features & CURL_VERSION_HTTP2 ? ", HTTP/2" : "") + ")\nSQLite " + sqlite3_libversion() + "\nsimdjson " + simdjsonVersion +
           "\nlibplist " + VELTRANE_PLIST_VERSION;
}

} // namespace veltrane::cli
