#include "runtime/conf_table.h"
#include "runtime/errors.h"
#include "runtime/kro_conf.h"
#include "runtime/temporary_file.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <cerrno>
#include <iostream>

namespace {

struct FreeTable {
    void operator()(conf_table* table) const { conf_free_r(table); }
};
using Table = std::unique_ptr<conf_table, FreeTable>;

Table emptyTable() {
    return Table(static_cast<conf_table*>(std::calloc(1, sizeof(conf_table))));
}

std::string show(const char* value) {
    return value == nullptr ? "(null)" : value;
}

class Configuration : public DirectoryTest {
protected:
    Table read(const std::string& text) const {
        writeFile(file_, text);
        Table table = emptyTable();
        EXPECT_EQ(conf_read_file_r(file_.c_str(), table.get()), 0);
        return table;
    }

    const std::string file_ = (base / "kro.conf").string();
};

class PanelConfiguration : public SandboxTest {
protected:
    /// What `body` prints with the given configuration file; none without a text.
    static Outcome with(const char* text, const std::function<void()>& body) {
        fs::rename("/etc/kro/kro.conf", "/etc/kro/own");
        if (text != nullptr)
            writeFile("/etc/kro/kro.conf", text);
        const Outcome outcome = inChild(body);
        fs::rename("/etc/kro/own", "/etc/kro/kro.conf");
        return outcome;
    }
};

} // namespace

TEST_F(Configuration, LinesGiveValuesByTheirExactRules) {
    const std::string large(1U << 20, 'v');
    const std::vector<std::pair<std::string, Words>> cases{
        {"/srv", {"V /srv\n", "V /srv", " \t V\t \v/srv\n", "V /srv # c\n", "V /srv#c\n"}},
        {"/srv  ", {"V /srv  # c\n", "V /srv   # c\n"}}, // of an odd number of blanks the last one goes
        {"/srv \n", {"V /srv \n"}},
        {"/srv\r\n", {"V /srv\r\n"}},
        {"a b", {"V a b\n"}},
        {large, {"A 1\nV " + large + "\n=" + large}},
        {"2", {"V 1\nV 2\n", "V 2\nV \nW 3\n", std::string("V 2\0b\n", 6)}},
        {"(null)", {"V=/srv\n", "V\n", "V \n", "V #x\n", "# V x\n", "=V x\n", "V-X x\n", std::string("V\0 b\n", 5)}},
    };
    for (const auto& [expected, texts] : cases)
        for (const std::string& text : texts)
            EXPECT_EQ(show(conf_get_r("V", read(text).get())), expected) << text;
}

TEST_F(Configuration, WhatCannotBeReadFailsWithErrnoAndKeepsWhatWasThere) {
    Table table = emptyTable();
    EXPECT_EQ(conf_read_file_r(file_.c_str(), table.get()), -1);
    EXPECT_EQ(errno, ENOENT);
    for (int i = 0; i < 21; ++i) // grown, so that freeing goes through slots never used
        EXPECT_EQ(conf_set_r(std::to_string(i).c_str(), "x", table.get()), 0);
    EXPECT_EQ(conf_read_file_r("/", table.get()), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(table->sorted, 0);
    EXPECT_EQ(show(conf_get_r("20", table.get())), "x");
    EXPECT_EQ(conf_set_r("20", "y", table.get()), 0);
    conf_finalize_r(table.get());
    EXPECT_EQ(show(conf_get_r("20", table.get())), "y");
    EXPECT_EQ(table->count, 21U);
    conf_free_r(nullptr);
}

TEST_F(PanelConfiguration, DefaultsStandWhereTheFileIsSilentAndNoNameIsMisspelt) {
    const auto all = [] {
        for (int index = 0; index < 30; ++index)
            std::cout << kroConfGetDefaultByIndex(index) << '\n';
        std::cout << show(kroConfGet("OWN")) << ' ' << kroConfGetDefault("CLIENT_PHP_BIN") << ' '
                  << show(kroConfGetByIndex(KRO_CONF_PRODUCT_ROOT_D));
    };
    const std::string table = with(nullptr, all).output;
    EXPECT_EQ(checksum(table), 1968157681U) << table;
    const std::string names =
        "NIMBO_MAILNAMES_D\nRBLSMTPD\nCLIENT_PHP_BIN\nLIB_CRYPTO_PATH\nLIB_SSL_PATH\nAWSTATS_DOC_D\nAWSTATS_TOOLS_D\n"
        "AWSTATS_BIN_D\nAWSTATS_ETC_D\nCATALINA_HOME\nMAILMAN_VAR_D\nMAILMAN_ROOT_D\nPGSQL_DATA_D\nPGSQL_BIN_D\n"
        "MYSQL_BIN_D\nMYSQL_VAR_D\nWEB_STAT\nDUMP_D\nDUMP_TMP_D\nNAMED_RUN_ROOT_D\nHTTPD_SERVICE\nHTTPD_LOG_D\n"
        "HTTPD_INCLUDE_D\nHTTPD_CONF_D\nHTTPD_VHOSTS_D\nPRODUCT_ROOT_D\nMYSQL_SOCKET\nSA_MAX_MAIL_SIZE\n";
    std::string text = "OWN x\n";
    for (const std::string& name : linesOf(names))
        text.append(name).append(" ").append(name).append("\n");
    EXPECT_EQ(with(text.c_str(), all).output, "_MIN_POSSIBLE_KRO_CONF_VAR_VALUE\n" + names +
                                                  "_MAX_POSSIBLE_KRO_CONF_VAR_VALUE\nx CLIENT_PHP_BIN PRODUCT_ROOT_D");
}

TEST_F(PanelConfiguration, UnknownNamesAreReportedAndDetailsOnlyOnDemand) {
    const auto unknown = [](const std::string& name) {
        return "variable '" + name + "' was found neither in /etc/kro/kro.conf, nor in compile-time defaults\n";
    };
    const std::string upper = "_MAX_POSSIBLE_KRO_CONF_VAR_NAME";
    const auto bounds = [&] {
        for (const auto* name : {"OWN", upper.c_str(), "_MIN_POSSIBLE_KRO_CONF_VAR_NAME"})
            std::cout << show(kroConfGetDefault(name)) << '\n';
    };
    EXPECT_THAT(with("OWN x\n", bounds),
                ended(0, unknown("OWN") + unknown(upper),
                      unknown("OWN") + "(null)\n" + unknown(upper) + "(null)\n_MIN_POSSIBLE_KRO_CONF_VAR_VALUE\n"));
    const std::string details = "Invalid variable definition A=1 \n\nExpected a space after variable name\n\n"
                                "Invalid variable definition B #\n\nExpected a value\n";
    for (const auto& [level, text] : {std::pair(12, details), std::pair(11, std::string())})
        EXPECT_THAT(with("A=1 \nB #\n", [level = level] { LogLevel = level, autoprepend(); }), ended(0, text, text));
}

TEST_F(Configuration, TemporaryFilesAreUniqueCleanedAndTellOfLostBytes) {
    {
        nimbo::TmpFile first((base / "new").string(), true), kept((base / "new").string(), false);
        EXPECT_NE(first.path(), kept.path());
        EXPECT_THAT(tree(base)[1], StartsWith("f 0600 "));
        EXPECT_TRUE((kept << "text").good() && kept.close());
        EXPECT_EQ(contentOf(kept.path()), "text");
        first.setstate(std::ios::badbit);
        EXPECT_FALSE(first.close());
    }
    EXPECT_EQ(tree(base).size(), 2U);
    EXPECT_THROW(nimbo::TmpFile((base / "none/x").string(), true), nimbo::ExSystemError<ENOENT>);
}
