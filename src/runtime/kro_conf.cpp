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

struct Variable {
    const char* name;
    const char* defaultValue;
};

// A variable's index is its position.  The first and the last one mark the bounds; they are no settings.
constexpr Variable theKroConfVariables[] = {
    {"_MIN_POSSIBLE_KRO_CONF_VAR_NAME", "_MIN_POSSIBLE_KRO_CONF_VAR_VALUE"},
    {"NIMBO_MAILNAMES_D", "/var/qmail/mailnames"},
    {"RBLSMTPD", "/usr/sbin/rblsmtpd"},
    {"CLIENT_PHP_BIN", "/opt/kro/bin/php-cli"},
    {"LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
    {"LIB_SSL_PATH", "/lib/libssl.so"},
    {"AWSTATS_DOC_D", "/usr/share/awstats"},
    {"AWSTATS_TOOLS_D", "/usr/share/awstats/tools"},
    {"AWSTATS_BIN_D", "/usr/lib/cgi-bin"},
    {"AWSTATS_ETC_D", "/etc/awstats"},
    {"CATALINA_HOME", "/var/lib/tomcat6"},
    {"MAILMAN_VAR_D", "/var/lib/mailman"},
    {"MAILMAN_ROOT_D", "/usr/lib/mailman"},
    // The version between the slashes is empty on this platform.
    {"PGSQL_DATA_D", "/var/lib/postgresql//main"},
    {"PGSQL_BIN_D", "/usr/lib/postgresql/9.1/bin"},
    {"MYSQL_BIN_D", "/usr/bin"},
    {"MYSQL_VAR_D", "/var/lib/mysql"},
    {"WEB_STAT", "/usr/bin/webalizer"},
    {"DUMP_D", "/var/lib/kro/dumps"},
    {"DUMP_TMP_D", "/tmp"},
    {"NAMED_RUN_ROOT_D", "/var/named/run-root"},
    {"HTTPD_SERVICE", "apache2"},
    {"HTTPD_LOG_D", "/var/log/apache2"},
    {"HTTPD_INCLUDE_D", "/etc/apache2/conf.d"},
    {"HTTPD_CONF_D", "/etc/apache2"},
    {"HTTPD_VHOSTS_D", "/var/www/vhosts"},
    {"PRODUCT_ROOT_D", "/opt/kro"},
    {"MYSQL_SOCKET", "/var/run/mysqld/mysqld.sock"},
    {"SA_MAX_MAIL_SIZE", "256000"},
    {"_MAX_POSSIBLE_KRO_CONF_VAR_NAME", "_MAX_POSSIBLE_KRO_CONF_VAR_VALUE"},
};

conf_table* theKroConfHash = nullptr;                        // what the file says; kept until the process ends
const char* theKroConfArray[std::size(theKroConfVariables)]; // the values found so far, by index

} // namespace

const char* kroConfGet(const char* name) {
    return autoprepend() == 0 ? conf_get_r(name, theKroConfHash) : nullptr;
}

const char* kroConfGetByIndex(int index) {
    const char*& value = theKroConfArray[index];
    if (value == nullptr)
        value = kroConfGet(theKroConfVariables[index].name);
    return value;
}

const char* kroConfGetDefaultByIndex(int index) {
    const char* const value = kroConfGetByIndex(index);
    return value != nullptr ? value : theKroConfVariables[index].defaultValue;
}

const char* kroConfGetDefault(const char* name) {
    // The lower bound can be asked for by name, the upper one cannot.
    const auto* const end = std::end(theKroConfVariables) - 1;
    const auto* const found = std::find_if(
        theKroConfVariables, end, [&](const Variable& variable) { return std::string_view(variable.name) == name; });
    if (found == end) {
        nimbo_log(LOG_ERR, "variable '%s' was found neither in %s, nor in compile-time defaults", name,
                  configurationFile);
        return nullptr;
    }
    return kroConfGetDefaultByIndex(static_cast<int>(found - theKroConfVariables));
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
