#include <climits>
#include <gtest/gtest.h>

#include "conf/ConfVariables.h"

namespace
{

struct Row {
    int index;
    ConfVariable variable;
    const char* name;
    const char* value;
};

constexpr Row table[] = {
    {0, MIN_POSSIBLE_KVO_CONF_VAR, "_MIN_POSSIBLE_KVO_CONF_VAR_NAME",
        "_MIN_POSSIBLE_KVO_CONF_VAR_VALUE"},
    {1, ZELTO_MAILNAMES_D, "ZELTO_MAILNAMES_D", "/var/qmail/mailnames"},
    {2, COURIER_IMAP_ROOT_D, "COURIER_IMAP_ROOT_D", "/"},
    {3, RBLSMTPD, "RBLSMTPD", "/usr/sbin/rblsmtpd"},
    {4, CLIENT_PHP_BIN, "CLIENT_PHP_BIN", "/usr/local/kvo/bin/php-cli"},
    {5, LIB_CRYPTO_PATH, "LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
    {6, LIB_SSL_PATH, "LIB_SSL_PATH", "/lib/libssl.so"},
    {7, AWSTATS_DOC_D, "AWSTATS_DOC_D", "/usr/share/apache2/icons/awstats"},
    {8, AWSTATS_TOOLS_D, "AWSTATS_TOOLS_D", "/usr/share/awstats"},
    {9, AWSTATS_BIN_D, "AWSTATS_BIN_D", "/srv/www/cgi-bin/awstats"},
    {10, AWSTATS_ETC_D, "AWSTATS_ETC_D", "/etc/awstats"},
    {11, CATALINA_HOME, "CATALINA_HOME", "/usr/share/tomcat55"},
    {12, MAILMAN_VAR_D, "MAILMAN_VAR_D", "/var/lib/mailman"},
    {13, MAILMAN_ROOT_D, "MAILMAN_ROOT_D", "/usr/lib/mailman"},
    {14, PGSQL_DATA_D, "PGSQL_DATA_D", "/var/lib/pgsql/data"},
    {15, PGSQL_BIN_D, "PGSQL_BIN_D", "/usr/bin"},
    {16, MYSQL_BIN_D, "MYSQL_BIN_D", "/usr/bin"},
    {17, MYSQL_VAR_D, "MYSQL_VAR_D", "/var/lib/mysql"},
    {18, WEB_STAT, "WEB_STAT", "/usr/bin/webalizer"},
    {19, DUMP_D, "DUMP_D", "/var/lib/kvo/dumps"},
    {20, DUMP_TMP_D, "DUMP_TMP_D", "/tmp"},
    {21, NAMED_RUN_ROOT_D, "NAMED_RUN_ROOT_D", "/var/lib/named"},
    {22, FTPD_CONF_INC, "FTPD_CONF_INC", "/etc/proftpd.include"},
    {23, HTTPD_SERVICE, "HTTPD_SERVICE", "apache2"},
    {24, HTTPD_LOG_D, "HTTPD_LOG_D", "/var/log/apache2"},
    {25, HTTPD_INCLUDE_D, "HTTPD_INCLUDE_D", "/etc/apache2/conf.d"},
    {26, HTTPD_CONF_D, "HTTPD_CONF_D", "/etc/apache2"},
    {27, HTTPD_VHOSTS_D, "HTTPD_VHOSTS_D", "/srv/www/vhosts"},
    {28, PRODUCT_ROOT_D, "PRODUCT_ROOT_D", "/usr/local/kvo"},
    {29, NAMED_OPTIONS_CONF, "NAMED_OPTIONS_CONF", "/etc/named.conf.include.zelto-options"},
    {30, NAMED_ZONES_CONF, "NAMED_ZONES_CONF", "/etc/named.conf.include.zelto-zones"},
    {31, MAX_POSSIBLE_KVO_CONF_VAR, "_MAX_POSSIBLE_KVO_CONF_VAR_NAME",
        "_MAX_POSSIBLE_KVO_CONF_VAR_VALUE"},
};

} // namespace

TEST(ConfVariables, HaveTheirIndexNameAndDefault)
{
    int index = 0;
    for (const Row& row : table) {
        EXPECT_EQ(row.index, index);
        EXPECT_EQ(row.variable, index);
        EXPECT_STREQ(confVariableName(index), row.name) << index;
        EXPECT_STREQ(confVariableDefault(index), row.value) << index;
        ++index;
    }
    EXPECT_EQ(index, confVariableCount);
}

TEST(ConfVariables, TakeAnIndexOutsideTheTableAsTheNearestSentinel)
{
    for (const int index : {-1, INT_MIN}) {
        EXPECT_STREQ(confVariableName(index), "_MIN_POSSIBLE_KVO_CONF_VAR_NAME");
        EXPECT_STREQ(confVariableDefault(index), "_MIN_POSSIBLE_KVO_CONF_VAR_VALUE");
    }
    for (const int index : {32, INT_MAX}) {
        EXPECT_STREQ(confVariableName(index), "_MAX_POSSIBLE_KVO_CONF_VAR_NAME");
        EXPECT_STREQ(confVariableDefault(index), "_MAX_POSSIBLE_KVO_CONF_VAR_VALUE");
    }
}
