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

TEST_F(PerformanceAnalyzerTest, OffWhenUnsetEmptyOrZeroAndTheSwitchIsReadOnlyOnce) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "0"}) {
    PSCPerformanceAnalyzer::ResetForTesting();
    meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", value);
    analysedFunction();
    EXPECT_FALSE(PSCIsPerformanceAnalysisOn());
    EXPECT_TRUE(PSCPerformanceAnalyzer::Statistics().empty());
  }
  PSCPerformanceAnalyzer::ResetForTesting();
  {
    meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
    EXPECT_TRUE(PSCIsPerformanceAnalysisOn());
  }
  analysedFunction();
  EXPECT_EQ(PSCPerformanceAnalyzer::Statistics().at("analysedFunction").m_calls, 1);
}

TEST_F(PerformanceAnalyzerTest, SameNamedScopesNestedOrNotAddToOneEntryByText) {
  meldtest::ScopedEnv env("VTX_PSC_ANALYZE_PERFORMANCE", "1");
  char first[] = "PSCGetAllBodyInPart";
  char second[] = "PSCGetAllBodyInPart";
  {
    PSCPerformanceAnalyzer outer(first);
    PSCPerformanceAnalyzer inner(second);
    PSCPerformanceAnalyzer other("PSCRollBack");
  }
  { PSCPerformanceAnalyzer again(second); }
  const auto table = PSCPerformanceAnalyzer::Statistics();
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table.at("PSCGetAllBodyInPart").m_calls, 3);
  EXPECT_EQ(table.at("PSCRollBack").m_calls, 1);
  EXPECT_GE(table.at("PSCGetAllBodyInPart").m_seconds, 0.0);
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
