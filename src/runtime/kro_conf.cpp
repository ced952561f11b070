#include "runtime/kro_conf.h"

#include "runtime/conf_table.h"
#include "runtime/utility_log.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <syslog.h>

namespace {

constexpr const char* configurationFile = "/etc/kro/kro.conf";
constexpr std::size_t variableCount = 30;

// The first and the last mark the bounds of the index range; they are no settings.
constexpr const char* theKroConfNames[variableCount] = {
    "_MIN_POSSIBLE_KRO_CONF_VAR_NAME",
    "NIMBO_MAILNAMES_D",
    "RBLSMTPD",
    "CLIENT_PHP_BIN",
    "LIB_CRYPTO_PATH",
    "LIB_SSL_PATH",
    "AWSTATS_DOC_D",
    "AWSTATS_TOOLS_D",
    "AWSTATS_BIN_D",
    "AWSTATS_ETC_D",
    "CATALINA_HOME",
    "MAILMAN_VAR_D",
    "MAILMAN_ROOT_D",
    "PGSQL_DATA_D",
    "PGSQL_BIN_D",
    "MYSQL_BIN_D",
    "MYSQL_VAR_D",
    "WEB_STAT",
    "DUMP_D",
    "DUMP_TMP_D",
    "NAMED_RUN_ROOT_D",
    "HTTPD_SERVICE",
    "HTTPD_LOG_D",
    "HTTPD_INCLUDE_D",
    "HTTPD_CONF_D",
    "HTTPD_VHOSTS_D",
    "PRODUCT_ROOT_D",
    "MYSQL_SOCKET",
    "SA_MAX_MAIL_SIZE",
    "_MAX_POSSIBLE_KRO_CONF_VAR_NAME",
};

constexpr const char* theKroConfDefauls[variableCount] = {
    "_MIN_POSSIBLE_KRO_CONF_VAR_VALUE",
    "/var/qmail/mailnames",
    "/usr/sbin/rblsmtpd",
    "/opt/kro/bin/php-cli",
    "/lib/libcrypto.so",
    "/lib/libssl.so",
    "/usr/share/awstats",
    "/usr/share/awstats/tools",
    "/usr/lib/cgi-bin",
    "/etc/awstats",
    "/var/lib/tomcat6",
    "/var/lib/mailman",
    "/usr/lib/mailman",
    "/var/lib/postgresql//main", // the version between the slashes is empty on this platform
    "/usr/lib/postgresql/9.1/bin",
    "/usr/bin",
    "/var/lib/mysql",
    "/usr/bin/webalizer",
    "/var/lib/kro/dumps",
    "/tmp",
    "/var/named/run-root",
    "apache2",
    "/var/log/apache2",
    "/etc/apache2/conf.d",
    "/etc/apache2",
    "/var/www/vhosts",
    "/opt/kro",
    "/var/run/mysqld/mysqld.sock",
    "256000",
    "_MAX_POSSIBLE_KRO_CONF_VAR_VALUE",
};

conf_table* theKroConfHash = nullptr;       // kept until the process ends
const char* theKroConfArray[variableCount]; // values found so far

} // namespace

const char* kroConfGet(const char* name) {
    return autoprepend() == 0 ? conf_get_r(name, theKroConfHash) : nullptr;
}

const char* kroConfGetByIndex(int index) {
    const char*& value = theKroConfArray[index];
    if (value == nullptr)
        value = kroConfGet(theKroConfNames[index]);
    return value;
}

const char* kroConfGetDefaultByIndex(int index) {
    const char* const value = kroConfGetByIndex(index);
    return value != nullptr ? value : theKroConfDefauls[index];
}

const char* kroConfGetDefault(const char* name) {
    // The lower bound can be asked for by name, the upper one cannot.
    const auto* const end = std::end(theKroConfNames) - 1;
    const auto* const found = std::find(theKroConfNames, end, std::string_view(name));
    if (found == end) {
        nimbo_log(LOG_ERR, "variable '%s' was found neither in %s, nor in compile-time defaults", name,
                  configurationFile);
        return nullptr;
    }
    return kroConfGetDefaultByIndex(static_cast<int>(found - theKroConfNames));
}

int autoprepend() {
    if (theKroConfHash != nullptr)
        return 0;
    auto* const table = static_cast<conf_table*>(std::calloc(1, sizeof(conf_table)));
    if (table == nullptr) {
        nimbo_log(LOG_ERR, "Not enough memory to allocate Nimbo runtime configuration structure");
        return -1;
    }
    if (conf_read_file_r(configurationFile, table) != 0) {
        conf_free_r(table);
        return -1;
    }
    theKroConfHash = table;
    return 0;
}
