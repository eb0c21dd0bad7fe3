#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "PSCPerformanceAnalyzer.h"
#include "TestSupport.h"

namespace {

class PerformanceAnalyzerTest : public ::testing::Test {
 protected:
  void SetUp() override { PSCPerformanceAnalyzer::ResetForTesting(); }
  void TearDown() override { PSCPerformanceAnalyzer::ResetForTesting(); }
};

void analysedFunction() { PSCPerformanceAnalyzer analyzer("analysedFunction"); }

TEST_F(PerformanceAnalyzerTest, OffWhenUnsetEmptyOrZero) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "0"}) {
    PSCPerformanceAnalyzer::ResetForTesting();
    meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", value);
    analysedFunction();
    EXPECT_FALSE(PSCIsPerformanceAnalysisOn());
    EXPECT_TRUE(PSCPerformanceAnalyzer::Statistics().empty());
  }
}

TEST_F(PerformanceAnalyzerTest, SwitchIsReadOnlyOnce) {
  {
    meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
    EXPECT_TRUE(PSCIsPerformanceAnalysisOn());
  }
  analysedFunction();
  EXPECT_EQ(PSCPerformanceAnalyzer::Statistics().at("analysedFunction").m_calls, 1);

  PSCPerformanceAnalyzer::ResetForTesting();
  EXPECT_FALSE(PSCIsPerformanceAnalysisOn());
  meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
  analysedFunction();
  EXPECT_TRUE(PSCPerformanceAnalyzer::Statistics().empty());
}

TEST_F(PerformanceAnalyzerTest, NestedSameNameScopesAddTwoCallsToOneEntry) {
  meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
  {
    PSCPerformanceAnalyzer outer("PSCGetAllBodyInPart");
    PSCPerformanceAnalyzer inner("PSCGetAllBodyInPart");
    PSCPerformanceAnalyzer other("PSCRollBack");
  }
  const auto table = PSCPerformanceAnalyzer::Statistics();
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table.at("PSCGetAllBodyInPart").m_calls, 2);
  EXPECT_EQ(table.at("PSCRollBack").m_calls, 1);
  EXPECT_GE(table.at("PSCGetAllBodyInPart").m_seconds, 0.0);
}

TEST_F(PerformanceAnalyzerTest, NamesAreComparedByText) {
  meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
  char first[] = "sameName";
  char second[] = "sameName";
  { PSCPerformanceAnalyzer a(first); }
  { PSCPerformanceAnalyzer b(second); }
  EXPECT_EQ(PSCPerformanceAnalyzer::Statistics().at("sameName").m_calls, 2);
}

TEST_F(PerformanceAnalyzerTest, MemoryGrowthInsideTheScopeIsCounted) {
  meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
  constexpr std::size_t kBytes = 64u << 20;
  std::vector<char> held;
  {
    PSCPerformanceAnalyzer analyzer("allocates");
    held.resize(kBytes);
    std::memset(held.data(), 1, held.size());  // make the pages resident
  }
  const auto table = PSCPerformanceAnalyzer::Statistics();
  const auto& entry = table.at("allocates");
  EXPECT_GE(entry.m_workingSetGrowth, static_cast<std::int32_t>(kBytes / 2));
  EXPECT_GE(entry.m_pageFileGrowth, static_cast<std::int32_t>(kBytes / 2));
}

}  // namespace
