#include "tests/preview/package.h"

#include <sys/mount.h>

/// Who asks, and for whom: root, the site's account "sitea", or "nobody".
class Accounts : public SandboxTest {
protected:
    Words asNobody(const Words& options = {}) const {
        return joined({"setpriv", "--reuid=nobody", "--clear-groups", LARKSPUR_PREVIEW, package.string()}, options);
    }
};

TEST_F(Accounts, WhatTheSitesAccountMayNotDoIsOneErrorForItsCause) {
    struct Changed {
        std::string path; ///< below the document root
        mode_t mode;      ///< 0 for a link
        std::string owner = "root";
        std::string group = "root";
    };
    struct Row {
        std::string findings = "";
        std::string mappings = rootMapping;
        Words entries = {}; ///< of the package, beside htdocs/index.php
        Words site = {};    ///< the account's, beside other
        std::vector<Changed> changed = {};
    };
    const std::vector<Row> rows{
        {.findings = "error: not-permitted: d: the account may not write there: the extraction fails\n",
         .entries = {"htdocs/d/e/f", "htdocs/d/g"},
         .site = {"d/"},
         .changed = {{"d", 0755}}},
        {.findings = "error: not-permitted: d: the account may not enter it: the extraction fails\n"
                     "warning: unreadable-site: d: what stands there is unknown: Permission denied\n",
         .entries = {"htdocs/d/e/f"},
         .site = {"d/e/"},
         .changed = {{"d", 0700}}},
        {.findings = "error: not-permitted: .: the account may not write there: the extraction fails\n",
         .entries = {"htdocs/d/e/f"},
         .changed = {{".", 0755}}},
        {.findings = "error: not-permitted: d: its sticky bit keeps the account from replacing files of others: the "
                     "extraction fails\nwarning: replaces: d/f: the site has something else there\n",
         .entries = {"htdocs/d/f", "htdocs/d/g"},
         .site = {"d/f -> /usr"},
         .changed = {{"d/f", 0}, {"d", 01777}}},
        {.findings = "error: file-occupied: l: the site has a link there that the account may not follow: the "
                     "extraction fails\n",
         .entries = {"htdocs/l/f"},
         .site = {"l -> /root/x"}},
        {.findings = "error: not-permitted: w: only its owner can open it to the web server: the extraction fails\n",
         .mappings = openMapping("w"),
         .entries = {"open/"},
         .site = {"w/"},
         .changed = {{"w", 0755}}},
        {.findings = "note: ships-data: w: 1 file: every upgrade replaces what visitors wrote there\n"
                     "error: not-permitted: w: the account may not write there: the extraction fails\n",
         .mappings = openMapping("w"),
         .entries = {"open/f"},
         .site = {"w/"},
         .changed = {{"w", 0755}}},
        {.findings = "error: not-permitted: w/d: the account may list it but not enter it: the extraction fails\n",
         .mappings = openMapping("w"),
         .entries = {"open/"},
         .site = {"w/d/e"},
         .changed = {{"w/d", 0744}}},
        {.entries = {"htdocs/own/f"}, .site = {"own/"}, .changed = {{"own", 0500, "sitea", "krocln"}}},
        {.entries = {"htdocs/group/f"}, .site = {"group/"}, .changed = {{"group", 0775, "root", "guestextra"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(PrintToString(std::make_tuple(row.mappings, row.entries, row.site)));
        fs::remove_all(docroot);
        makePackage(package, metadata(row.mappings), row.entries);
        put(joined({"other"}, row.site));
        for (const auto& [path, mode, owner, group] : row.changed) {
            giveTo(docroot / path, owner, group);
            if (mode != 0)
                chmod((docroot / path).c_str(), mode);
        }
        const Words words{LARKSPUR_PREVIEW, "--user-name=sitea", "--www-root=" + docroot.string(), package.string()};
        const bool fails = !row.findings.empty();
        EXPECT_THAT(run(words), ended(fails ? 2 : 0, row.findings));
        EXPECT_THAT(run(joined({"setpriv", "--reuid=sitea", "--regid=krocln", "--init-groups"}, words)),
                    ended(fails ? 2 : 0, row.findings));
        EXPECT_EQ(run(command("extract-application")).status, fails ? 1 : 0);
    }
}

TEST_F(Accounts, NobodyNeedsMoreThanToReadThePackage) {
    const std::string mappings = "<mapping url='one' path='closed/one'/><mapping url='two' path='closed/two'/>";
    makePackage(package, metadata(rootMapping + mappings),
                {"htdocs/secret/page", "htdocs/secret/d/e", "closed/one/page"});
    chmod((package / "htdocs/secret").c_str(), 0700);
    chmod((package / "closed").c_str(), 0700);
    chmod((package / "closed/one/page").c_str(), 0600); // not a cause of its own
    ASSERT_EQ(mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, package.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    for (const Words& words : {Words{LARKSPUR_PREVIEW, package.string()}, asNobody()}) {
        const Outcome withoutInput = run(byShell("exec \"$@\" <&-", words));
        EXPECT_THAT(
            withoutInput,
            ended(2,
                  "error: unreadable-source: closed: the site's account may not enter it: the extraction fails\n"
                  "warning: unreadable-source: htdocs/secret: the site's account may not list it: "
                  "the extraction leaves its content out\n",
                  HasSubstr("  drwxr-xr-x   secret\n")));
    }
    umount(package.c_str());
}

TEST_F(Accounts, WhatThePreviewCannotListMakesNothingObsolete) {
    makePackage(package, metadata(rootMapping), {"htdocs/own/page", "htdocs/listed/page"});
    // For others, but not for their owner, who asks.
    for (const auto& [name, mode] : {std::pair("own", 0055), {"listed", 0455}}) {
        giveTo(package / "htdocs" / name, "nobody", "nogroup");
        chmod((package / "htdocs" / name).c_str(), static_cast<mode_t>(mode));
    }
    const fs::path list = base / "list.xml";
    writeFile(list, "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>own/page</FILE></SECTION></INSTANCE-DATA>");
    const Words words = asNobody({"--previous-list=" + list.string()});
    EXPECT_THAT(run(words),
                ended(1,
                      "warning: unreadable-source: htdocs/listed: this preview may not look into it\n"
                      "warning: unreadable-source: htdocs/own: this preview cannot list it: Permission denied\n",
                      Not(HasSubstr("obsolete"))));
    EXPECT_THAT(run(joined(words, {"--format=obsolete-files", "--ignore=unreadable-source"})),
                ended(2, StartsWith("larkspur-preview: "), ""));
}

TEST_F(Accounts, WhatTheSiteDoesNotShowIsUnknownOnceADirectory) {
    makePackage(package, metadata(rootMapping), {"htdocs/d/a", "htdocs/d/b/c", "htdocs/e"});
    make(docroot, {"d/a", "e"});
    chmod((docroot / "d").c_str(), 0600);
    chmod((docroot / "e").c_str(), 0600);
    const Words words = asNobody({"--www-root=" + docroot.string()});
    EXPECT_THAT(run(words), ended(1,
                                  "warning: unreadable-site: d: what stands there is unknown: Permission denied\n"
                                  "warning: unreadable-site: .: what stands there is unknown: Permission denied\n",
                                  AllOf(HasSubstr("? drwxr-xr-x   d/b\n? -rw-r--r--   d/b/c\n? -rw-r--r--   e\n"),
                                        EndsWith("0 errors, 2 warnings\n"))));
    EXPECT_THAT(run(joined(words, {"--ignore=unreadable-site", "--ignore=not-permitted"})), ended(0));
    // Nor is it somebody's change where the previous release has files of the same size.
    makePackage(base / "previous", metadata(rootMapping), {"htdocs/d/a", "htdocs/e", "htdocs/gone"});
    writeFile(package / "htdocs/e", "of another size\n");
    make(docroot, {"gone"});
    chmod((docroot / "gone").c_str(), 0600);
    EXPECT_THAT(run(joined(words, {"--previous-package=" + (base / "previous").string()})),
                ended(1,
                      "warning: unreadable-site: d: what stands there is unknown: Permission denied\n"
                      "warning: unreadable-site: .: what stands there is unknown: Permission denied\n",
                      HasSubstr("\n? -rw-r--r--   e\n")));
}

TEST_F(Accounts, NobodyLooksWhereTheRightsOfRootAreKept) {
    makePackage(package, metadata(rootMapping));
    EXPECT_THAT(
        run({"setpriv", "--securebits=+no_setuid_fixup", LARKSPUR_PREVIEW, "--user-name=sitea", package.string()}),
        ended(2, "larkspur-preview: cannot become sitea\n", ""));
}
