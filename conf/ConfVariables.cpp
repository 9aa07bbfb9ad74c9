#include "conf/ConfVariables.h"

#include <algorithm>
#include <iterator>

namespace
{

struct Variable {
    const char* name;
    const char* value;
};

constexpr Variable variables[] = {
    {"_MIN_POSSIBLE_KVO_CONF_VAR_NAME", "_MIN_POSSIBLE_KVO_CONF_VAR_VALUE"},
    {"ZELTO_MAILNAMES_D", "/var/qmail/mailnames"},
    {"COURIER_IMAP_ROOT_D", "/"},
    {"RBLSMTPD", "/usr/sbin/rblsmtpd"},
    {"CLIENT_PHP_BIN", "/usr/local/kvo/bin/php-cli"},
    {"LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
    {"LIB_SSL_PATH", "/lib/libssl.so"},
    {"AWSTATS_DOC_D", "/usr/share/apache2/icons/awstats"},
    {"AWSTATS_TOOLS_D", "/usr/share/awstats"},
    {"AWSTATS_BIN_D", "/srv/www/cgi-bin/awstats"},
    {"AWSTATS_ETC_D", "/etc/awstats"},
    {"CATALINA_HOME", "/usr/share/tomcat55"},
    {"MAILMAN_VAR_D", "/var/lib/mailman"},
    {"MAILMAN_ROOT_D", "/usr/lib/mailman"},
    {"PGSQL_DATA_D", "/var/lib/pgsql/data"},
    {"PGSQL_BIN_D", "/usr/bin"},
    {"MYSQL_BIN_D", "/usr/bin"},
    {"MYSQL_VAR_D", "/var/lib/mysql"},
    {"WEB_STAT", "/usr/bin/webalizer"},
    {"DUMP_D", "/var/lib/kvo/dumps"},
    {"DUMP_TMP_D", "/tmp"},
    {"NAMED_RUN_ROOT_D", "/var/lib/named"},
    {"FTPD_CONF_INC", "/etc/proftpd.include"},
    {"HTTPD_SERVICE", "apache2"},
    {"HTTPD_LOG_D", "/var/log/apache2"},
    {"HTTPD_INCLUDE_D", "/etc/apache2/conf.d"},
    {"HTTPD_CONF_D", "/etc/apache2"},
    {"HTTPD_VHOSTS_D", "/srv/www/vhosts"},
    {"PRODUCT_ROOT_D", "/usr/local/kvo"},
    {"NAMED_OPTIONS_CONF", "/etc/named.conf.include.zelto-options"},
    {"NAMED_ZONES_CONF", "/etc/named.conf.include.zelto-zones"},
    {"_MAX_POSSIBLE_KVO_CONF_VAR_NAME", "_MAX_POSSIBLE_KVO_CONF_VAR_VALUE"},
};
static_assert(std::size(variables) == confVariableCount);

const Variable& nearest(int index)
{
    return variables[std::clamp<int>(index, MIN_POSSIBLE_KVO_CONF_VAR, MAX_POSSIBLE_KVO_CONF_VAR)];
}

} // namespace

const char* confVariableName(int index)
{
    return nearest(index).name;
}

const char* confVariableDefault(int index)
{
    return nearest(index).value;
}
