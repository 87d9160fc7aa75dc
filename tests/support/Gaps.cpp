#include "support/Gaps.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "Platform.h"
#include "support/HomesTable.h"

namespace {

struct Gap {
    std::string testCase;  // Suite.Case
    std::string sign;      // part of the failure's text
    std::string reason;
    bool seen = false;
};

class CGaps : public testing::EmptyTestEventListener {
  public:
    explicit CGaps(std::vector<Gap> gaps) : m_gaps(std::move(gaps)) {}

  private:
    void OnTestStart(const testing::TestInfo& test) override {
        m_here.clear();
        const std::string name = std::string(test.test_suite_name()) + '.' + test.name();
        for (Gap& gap : m_gaps) {
            if (gap.testCase == name) m_here.push_back(&gap);
        }
        if (m_here.empty()) return;
        m_failures = std::make_unique<testing::TestPartResultArray>();
        m_interceptor = std::make_unique<testing::ScopedFakeTestPartResultReporter>(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, m_failures.get());
    }

    void OnTestEnd(const testing::TestInfo&) override {
        if (m_here.empty()) return;
        m_interceptor.reset();
        for (int i = 0; i < m_failures->size(); ++i) Judge(m_failures->GetTestPartResult(i));
        for (const Gap* gap : m_here) {
            EXPECT_TRUE(gap->seen) << "docs/homes.md says that this home differs here, and it does not any more: "
                                   << gap->sign << " (" << gap->reason << ")";
        }
    }

    // Every sign that the failure bears is seen by it.
    void Judge(const testing::TestPartResult& failure) {
        bool known = failure.skipped() || failure.passed();
        for (Gap* gap : m_here) {
            if (!failure.failed() || std::string(failure.message()).find(gap->sign) == std::string::npos) continue;
            gap->seen = known = true;
        }
        if (!known) ADD_FAILURE_AT(failure.file_name(), failure.line_number()) << failure.message();
    }

    std::vector<Gap> m_gaps;
    std::vector<Gap*> m_here;  // of the case that runs
    std::unique_ptr<testing::TestPartResultArray> m_failures;
    std::unique_ptr<testing::ScopedFakeTestPartResultReporter> m_interceptor;
};

// Whether the case is in this program, or may be in another: its suite is not here.
bool IsCaseOrElsewhere(const std::string& testCase) {
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        const std::string prefix = std::string(suite.name()) + '.';
        if (!testCase.starts_with(prefix)) continue;
        for (int k = 0; k < suite.total_test_count(); ++k) {
            if (testCase == prefix + suite.GetTestInfo(k)->name()) return true;
        }
        return false;
    }
    return true;
}

}  // namespace

std::string HoldTestsToTheGaps(const std::string& tableFile) try {
    std::vector<Gap> gaps;
    for (const char* home : {"layer", "windows"}) {
        for (const HomesRow& row : ReadHomesTable(tableFile, home, 3)) {
            if (!IsCaseOrElsewhere(row[0])) return tableFile + ": there is no case " + row[0];
            if (home == std::string(kOvHomeName)) gaps.push_back({row[0], row[1], row[2]});
        }
    }
    if (!gaps.empty()) testing::UnitTest::GetInstance()->listeners().Append(new CGaps(std::move(gaps)));
    return {};
} catch (const std::runtime_error& error) {
    return error.what();
}
