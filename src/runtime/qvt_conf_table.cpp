#include <array>
#include <string_view>

#include "runtime/qvt_conf.h"

namespace {

constexpr std::array<const char*, kQvtConfMaxMarker + 1> kNames = {
    "_MIN_POSSIBLE_QVT_CONF_VAR_NAME",
    "CRELM_MAILNAMES_D",
    "RBLSMTPD",
    "CLIENT_PHP_BIN",
    "LIB_CRYPTO_PATH",
    "LIB_SSL_PATH",
    "AWSTATS_DOC_D",
    "AWSTATS_TOOLS_D",
    "AWSTATS_BIN_D",
    "AWSTATS_ETC_D",
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
    "HTTPD_BIN",
    "HTTPD_SERVICE",
    "HTTPD_LOG_D",
    "HTTPD_INCLUDE_D",
    "HTTPD_CONF_D",
    "HTTPD_VHOSTS_D",
    "MYSQL_SOCKET",
    "SA_MAX_MAIL_SIZE",
    "SNI_SUPPORT",
    "PRODUCT_ROOT_D",
    "_MAX_POSSIBLE_QVT_CONF_VAR_NAME",
};

constexpr std::array<const char*, kQvtConfMaxMarker + 1> kDefaults = {
    "_MIN_POSSIBLE_QVT_CONF_VAR_VALUE",
    "/var/qmail/mailnames",
    "/usr/sbin/rblsmtpd",
    "/opt/qvt/bin/php-cli",
    "/lib/libcrypto.so",
    "/lib/libssl.so",
    "/usr/share/awstats",
    "/usr/share/awstats/tools",
    "/usr/lib/cgi-bin",
    "/etc/awstats",
    "/var/lib/mailman",
    "/usr/lib/mailman",
    "/var/lib/postgresql/14/main",
    "/usr/lib/postgresql/14/bin",
    "/usr/bin",
    "/var/lib/mysql",
    "/usr/bin/webalizer",
    "/var/lib/qvt/dumps",
    "/tmp",
    "/var/named/run-root",
    "/usr/sbin/apache2",
    "apache2",
    "/var/log/apache2",
    "/etc/apache2/conf-enabled",
    "/etc/apache2",
    "/var/www/vhosts",
    "/var/run/mysqld/mysqld.sock",
    "256000",
    "true",
    "/opt/qvt",
    "_MAX_POSSIBLE_QVT_CONF_VAR_VALUE",
};

bool in_table(int index) { return index >= 0 && index <= kQvtConfMaxMarker; }

}  // namespace

const char* qvt_conf_name_at(int index) { return in_table(index) ? kNames[index] : nullptr; }

const char* qvt_conf_default_at(int index) { return in_table(index) ? kDefaults[index] : nullptr; }

int qvt_conf_index_of(std::string_view name) {
    for (int index = kQvtConfMinMarker; index < kQvtConfMaxMarker; ++index) {
        if (name == kNames[index])
            return index;
    }
    return -1;
}
