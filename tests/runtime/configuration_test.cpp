#include "runtime/conf_table.h"
#include "runtime/errors.h"
#include "runtime/kro_conf.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"
#include "xml/document.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using Table = std::unique_ptr<conf_table, void (*)(conf_table*)>;

Table emptyTable() {
    return {static_cast<conf_table*>(std::calloc(1, sizeof(conf_table))), conf_free_r};
}

std::string show(const char* value) {
    return value == nullptr ? "(null)" : value;
}

class Configuration : public DirectoryTest {
protected:
    const std::string file_ = (base / "kro.conf").string();
};

class PanelConfiguration : public SandboxTest {
protected:
    /// How `body` ends with a configuration file of this text, or without one.
    static Outcome with(const std::optional<std::string>& text, const std::function<void()>& body) {
        const ChangedFile changed("/etc/kro/kro.conf", text.value_or(""));
        if (!text)
            fs::remove("/etc/kro/kro.conf");
        return inChild(body);
    }
};

} // namespace

TEST_F(Configuration, LinesGiveValuesByTheirExactRules) {
    const auto valueIn = [this](const std::string& text) {
        writeFile(file_, text);
        const Table table = emptyTable();
        EXPECT_EQ(conf_read_file_r(file_.c_str(), table.get()), 0);
        EXPECT_EQ(table->sorted, 1);
        return show(conf_get_r("V", table.get()));
    };
    for (const std::string text : {"V /srv\n", "V /srv", " \t V\t \v/srv\n", "V /srv # c\n", "V /srv#c\n"})
        EXPECT_EQ(valueIn(text), "/srv") << text;
    // Of an odd number of blanks, the line break among them, the last one goes.
    EXPECT_EQ(valueIn("V /srv  # c\n"), "/srv  ");
    EXPECT_EQ(valueIn("V /srv   # c\n"), "/srv  ");
    EXPECT_EQ(valueIn("V /srv \n"), "/srv \n");
    EXPECT_EQ(valueIn("V /srv\r\n"), "/srv\r\n");
    EXPECT_EQ(valueIn("V a b\n"), "a b");
    const std::string large(1U << 20, 'v');
    EXPECT_EQ(valueIn("A 1\nV " + large + "\n=" + large), large);
    EXPECT_EQ(valueIn("V 1\nV 2\n"), "2");
    EXPECT_EQ(valueIn("V 2\nV \nW 3\n"), "2");
    EXPECT_EQ(valueIn(std::string("V 2\0b\n", 6)), "2");
    EXPECT_EQ(valueIn(std::string("V\0 b\n", 5)), "(null)");
    for (const std::string text : {"V=/srv\n", "V\n", "V \n", "V #x\n", "# V x\n", "=V x\n", "V-X x\n"})
        EXPECT_EQ(valueIn(text), "(null)") << text;
}

TEST_F(Configuration, WhatCannotBeReadChangesNothing) {
    const Table table = emptyTable();
    EXPECT_EQ(conf_read_file_r(file_.c_str(), table.get()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(conf_set_r("V", "x", table.get()), 0);
    EXPECT_EQ(conf_read_file_r("/", table.get()), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(table->sorted, 0);
    EXPECT_EQ(show(conf_get_r("V", table.get())), "x");
}

TEST_F(Configuration, ALineThatASignalCutsOffIsNone) {
    const auto readFromPipe = [] {
        std::array<int, 2> pipe{};
        ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
        const std::string text = "V whole\nW unfinished";
        ASSERT_EQ(write(pipe[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        interruptBy([](int) {});
        const Table table = emptyTable();
        EXPECT_EQ(conf_read_file_r(("/dev/fd/" + std::to_string(pipe[0])).c_str(), table.get()), -1);
        EXPECT_EQ(errno, EINTR);
        std::cout << show(conf_get_r("V", table.get())) << '|' << show(conf_get_r("W", table.get()));
    };
    EXPECT_THAT(inChild(readFromPipe), ended(0, "", "whole|(null)"));
}

TEST_F(Configuration, AFullTableGrowsAlsoWhereAValueIsReplaced) {
    const Table table = emptyTable();
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(conf_set_r(std::to_string(i).c_str(), "x", table.get()), 0);
    EXPECT_EQ(table->capacity, 40U);
    EXPECT_EQ(conf_set_r("39", "y", table.get()), 0);
    EXPECT_EQ(table->capacity, 80U);
    EXPECT_EQ(table->count, 40U);
}

TEST_F(Configuration, ANameIsFoundBeforeTheTableIsSorted) {
    const Table table = emptyTable();
    for (const char* const name : {"c", "a", "b"})
        conf_set_r(name, name, table.get());
    EXPECT_EQ(show(conf_get_r("a", table.get())), "a");
    EXPECT_EQ(show(conf_get_r("c", table.get())), "c");
}

TEST_F(Configuration, FreeingNoTableIsAllowed) {
    conf_free_r(nullptr);
}

TEST_F(PanelConfiguration, HasTheFilesValueOrTheDefaultAtEachIndex) {
    const auto show = [] {
        for (const int index : {0, +KRO_CONF_CLIENT_PHP_BIN, +KRO_CONF_HTTPD_VHOSTS_D, +KRO_CONF_PRODUCT_ROOT_D, 29})
            std::cout << kroConfGetDefaultByIndex(index) << '\n';
    };
    EXPECT_THAT(with({}, show), ended(0, "",
                                      "_MIN_POSSIBLE_KRO_CONF_VAR_VALUE\n/opt/kro/bin/php-cli\n/var/www/vhosts\n"
                                      "/opt/kro\n_MAX_POSSIBLE_KRO_CONF_VAR_VALUE\n"));
    const std::string own = "PRODUCT_ROOT_D root\nHTTPD_VHOSTS_D vhosts\n_MAX_POSSIBLE_KRO_CONF_VAR_NAME max\n"
                            "CLIENT_PHP_BIN php\n_MIN_POSSIBLE_KRO_CONF_VAR_NAME min\n";
    EXPECT_THAT(with(own, show), ended(0, "", "min\nphp\nvhosts\nroot\nmax\n"));
}

TEST_F(PanelConfiguration, HasNoDefaultForAnUnknownName) {
    const auto unknown = [](const std::string& name) {
        return "variable '" + name + "' was found neither in /etc/kro/kro.conf, nor in compile-time defaults\n";
    };
    const std::string upper = "_MAX_POSSIBLE_KRO_CONF_VAR_NAME";
    const auto ask = [&] {
        std::cout << show(kroConfGet("OWN")) << '\n';
        for (const std::string& name : {std::string("OWN"), upper, std::string("_MIN_POSSIBLE_KRO_CONF_VAR_NAME")})
            std::cout << show(kroConfGetDefault(name.c_str())) << '\n';
    };
    EXPECT_THAT(with("OWN x\n", ask), ended(0, unknown("OWN") + unknown(upper),
                                            "x\n" + unknown("OWN") + "(null)\n" + unknown(upper) +
                                                "(null)\n_MIN_POSSIBLE_KRO_CONF_VAR_VALUE\n"));
}

TEST_F(PanelConfiguration, TellsDetailsOnDemand) {
    const auto readAt = [](int level) {
        LogLevel = level;
        autoprepend();
    };
    const std::string lines = "Invalid variable definition A=1 \n\nExpected a space after variable name\n\n"
                              "Invalid variable definition B #\n\nExpected a value\n";
    const std::string noFile = "unable to open configuration file /etc/kro/kro.conf: No such file or directory\n\n";
    EXPECT_THAT(with("A=1 \nB #\n", [&] { readAt(12); }), ended(0, lines, lines));
    EXPECT_THAT(with({}, [&] { readAt(12); }), ended(0, noFile, noFile));
    EXPECT_THAT(with("A=1 \nB #\n", [&] { readAt(11); }), ended(0, "", ""));
    const auto readDirectory = [] {
        LogLevel = 12;
        conf_read_file_r("/", emptyTable().get());
    };
    EXPECT_THAT(inChild(readDirectory), ended(0, "Unable to read configuration file: Is a directory\n"));
}

#ifndef __SANITIZE_ADDRESS__ // it needs memory itself
/// Takes all memory that malloc(3) has left, down to the smallest pieces, which it keeps by their size.
static void exhaustMemory() {
    void* (*volatile take)(std::size_t) = std::malloc; // the compiler would drop a direct call
    for (std::size_t size = 1U << 20; size > 2048; size /= 2)
        while (take(size) != nullptr)
            continue;
    for (std::size_t size = 2048; size > 0; size -= 16)
        while (take(size) != nullptr)
            continue;
}

TEST_F(Configuration, ALackOfMemoryIsTold) {
    struct Row {
        std::string name;
        bool isAllTaken = true; ///< down to the smallest pieces
        std::function<void()> act;
        int status = 0;
        Text told;
    };
    conf_table empty{};
    conf_table begun{};
    conf_init_r(&begun);
    const nimbo::SystemError failure("unnamed", EIO);
    const std::string tooLarge(std::size_t{64} << 20, 'x');
    const std::vector<Row> rows{
        {.name = "for a value, where there is some for its name",
         .isAllTaken = false,
         .act = [&] { conf_set_r("V", tooLarge.c_str(), &begun); },
         .told = "Unable to form configuration: Cannot allocate memory\n"},
        {.name = "for the name of a value",
         .act = [&] { conf_set_r("V", "x", &begun); },
         .told = "Unable to form configuration: Cannot allocate memory\n"},
        {.name = "for a table",
         .act = [&] { nimbo_log(1, "%d", conf_set_r("V", "x", &empty)); },
         .told = "Unable to read configuration: Cannot allocate memory\n-1\n"},
        {.name = "for a message",
         .act = [] { messlog2(0, 0, "message"); },
         .told = "Can't allocate memory for error message\n"},
        {.name = "for the panel's configuration",
         .act = [] { autoprepend(); },
         .told = "Not enough memory to allocate Nimbo runtime configuration structure\n"},
        {.name = "for the text of a failure", .act = [&] { nimbo_log(1, "%s", failure.what()); }, .told = "unnamed\n"},
        {.name = "for a document",
         .act = [] { parseXmlMemory("<a/>"); },
         .status = aborted,
         .told = HasSubstr("bad_alloc")},
    };
    for (const Row& row : rows) {
        const auto actWithoutMemory = [&] {
            LogLevel = 12;
            const rlimit none{0, 0};
            setrlimit(RLIMIT_AS, &none);
            if (row.isAllTaken)
                exhaustMemory();
            row.act();
            _exit(0); // what a usual exit does may need memory
        };
        EXPECT_THAT(inChild(actWithoutMemory), ended(row.status, row.told)) << row.name;
    }
}
#endif
