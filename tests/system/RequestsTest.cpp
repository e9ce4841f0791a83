#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include <vendor/lyr/modem/1.0/table.h>

#include "tests/system/System.h"

namespace {

using Requests = SystemTest;

/** A request and its answers on instance 0 and 1. */
using Row = std::vector<std::string>;

/** The table of docs/answers.md, in whose order the requests find what others left. */
std::vector<Row> documentedAnswers(const std::string& path) {
    std::ifstream document(DOCUMENT);
    std::vector<Row> rows;
    for (std::string line; std::getline(document, line);) {
        Row row;
        std::istringstream columns(line);
        for (std::string column; std::getline(columns, column, '|');) {
            const size_t begin = column.find('`') + 1;
            row.push_back(column.substr(begin, column.find('`', begin) - begin));
        }
        if (line.rfind("| `", 0) == 0) {
            const size_t at = row[1].find("FILE");
            row[1].replace(std::min(at, row[1].size()), 4, at != row[1].npos ? path : "");
            rows.push_back({row[1], row[2], row[3] == " the same " ? row[2] : row[3]});
        }
    }
    return rows;
}

std::string outputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    for (int c = 0; (c = getc(pipe.get())) != EOF;) {
        output += static_cast<char>(c);
    }
    return output;
}

}  // namespace

/** Both instances side by side: the whole service, and the one without MBN, SAR and AT log. */
TEST_F(Requests, AreAnsweredAsDocumentedOnBothInstances) {
    const Host hosts[] = {Host(0), Host(1)};
    Client clients[] = {Client(0), Client(1)};
    std::set<std::string> called;
    for (const Row& row : documentedAnswers(file("config.mbn", std::string(2000, 'x')))) {
        called.insert(row[0].substr(0, row[0].find(' ')));
        EXPECT_EQ(clients[0].call(row[0]), row[1]) << row[0];
        EXPECT_EQ(clients[1].call(row[0]), row[2]) << row[0];
    }
    // All but setCallback, which has no answer.
    EXPECT_EQ(called.size(), vendor::lyr::modem::V1_0::IModem_table.methodCount - 1);
    const char* const states[][3] = {{"state sar-state", " 2\n", " 0\n"},
                                     {"state service.sar", "up", "closed"},
                                     {"state service.nas", "up bound 0", "up bound 1"},
                                     {"state service.wds", "up bound 0", "up bound 1"},
                                     {"state service.vs", "up bound 0", "up bound 1"},
                                     {"state debug-value", " 6\n", " 6\n"},
                                     {"calls modem_set_sar_dsi", "1\n", "0\n"},
                                     {"calls modem_pdc_load_configuration", "3\n", "0\n"},
                                     {"calls modem_qdp_delete_ims_profile", "2\n", "2\n"}};
    for (int instance : {0, 1}) {
        for (const auto& state : states) {
            EXPECT_TRUE(hosts[instance].awaitSim(state[0], state[1 + instance])) << state[0];
        }
        // What was written, from before the reboot.
        EXPECT_EQ(clients[instance].call("readNVItem 550 0 0"), "error=0 data=hex:0a0b");
        EXPECT_EQ(clients[instance].call("readPrl 0"), "error=0 data=hex:00ff10");
    }
}

TEST(Library, ExportsItsEntryAlone) {
    if (SANITIZED) {
        GTEST_SKIP() << "sanitizers add symbols";
    }
    const std::string exported = outputOf("nm -D --defined-only '" PLUGIN "'");
    EXPECT_EQ(exported.find(" T onLoad\n") + 10, exported.size()) << exported;
    EXPECT_EQ(exported.find('\n'), exported.size() - 1) << exported;
}
