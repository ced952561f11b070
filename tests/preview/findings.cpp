#include "tests/preview/findings.h"

#include "preview/findings.h"

#include <boost/algorithm/string.hpp>

void FindingsTest::check(const std::vector<FindingsRow>& rows) const {
    writeFile(list, "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>index.php</FILE></SECTION></INSTANCE-DATA>");
    for (const FindingsRow& row : rows) {
        SCOPED_TRACE(PrintToString(std::make_tuple(row.version, row.mappings, row.entries, row.site, row.options)));
        makePackage(previous, metadata(row.mappings, row.version), row.previous);
        makePackage(package, metadata(row.mappings, row.version), row.entries);
        writeFile(package / "htdocs/index.php", "changed\n");
        for (const auto& [path, mode] : row.modes)
            fs::permissions(package / path, static_cast<fs::perms>(mode));
        fs::remove_all(site);
        make(site, row.site);
        Words words = joined({package.string()}, row.options);
        if (!row.site.empty())
            words.push_back("--www-root=" + (site / row.root).string());

        int status = 0;
        Words lines;
        for (const auto& [severity, itsStatus, finding] :
             {std::tuple("note: ", 0, row.note), {"warning: ", 1, row.warning}, {"error: ", 2, row.error}}) {
            if (finding.empty())
                continue;
            status = itsStatus;
            lines.push_back(severity + finding);
            EXPECT_THAT(findingCodes, Contains(finding.substr(0, finding.find(':'))));
        }
        Outcome outcome = preview(words);
        boost::erase_all(outcome.error, base.string());
        EXPECT_THAT(outcome, ended(status, _));
        EXPECT_THAT(linesOf(outcome.error), UnorderedElementsAreArray(lines));
    }
}
