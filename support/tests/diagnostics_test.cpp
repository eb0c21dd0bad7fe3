#include <gtest/gtest.h>

#include "KxuDiagnosticsData.h"
#include "PSCHostDirectory.h"

namespace {

class FixedProvider : public KxuDiagnosticsProvider {
 public:
  KxuDiagnosticsData* diagnosticsData() override { return &data; }
  KxuDiagnosticsData data{};
};

TEST(DiagnosticsData, BuiltInBlockStartsEmptyAndIsShared) {
  KxuDiagnosticsData* block = KxuGetDiagnosticsData();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block, KxuGetDiagnosticsData());
  EXPECT_EQ(block->errorStack.count, 0);
  EXPECT_STREQ(block->errorStack.statusFileName, "");
  EXPECT_EQ(block->errorStack.lineCallback, nullptr);
  EXPECT_EQ(block->errorStack.echo, 0);
}

TEST(DiagnosticsData, RegisteredProviderServesTheBlockUntilRemoved) {
  KxuDiagnosticsData* builtIn = KxuGetDiagnosticsData();
  FixedProvider provider;
  KxuDiagnosticsProvider* previous = KxuRegisterDiagnosticsProvider(&provider);
  EXPECT_EQ(KxuGetDiagnosticsData(), &provider.data);
  EXPECT_EQ(KxuRegisterDiagnosticsProvider(nullptr), &provider);
  EXPECT_EQ(KxuGetDiagnosticsData(), builtIn);
  EXPECT_EQ(previous->diagnosticsData(), builtIn);
}

TEST(HostDirectory, KnownHostNamesGiveTheirDirectoryIgnoringCaseAfterACutAt260) {
  const std::string dir = "/" + std::string(240, 'd') + "/";
  const std::pair<std::string, std::string> cases[] = {
      {"/opt/tools/bin/XtBatchTranslator.EXE", "/opt/tools/bin/"},
      {"/srv/solidexchangehost", "/srv/"},
      {"/usr/bin/MeldSolids", ""},
      {"/opt/xtbatchtranslator/other", ""},
      {"", ""},
      {dir + "solidexchangehost", dir},       // 259 characters
      {dir + "solidexchangehost.exe", ""},    // cut after "...host."
  };
  for (const auto& [path, directory] : cases) EXPECT_EQ(PSCHostDirectoryOf(path), directory) << path;
  EXPECT_EQ(PSCGetHostDirectory(), "");  // the test program is no host
}

}  // namespace
