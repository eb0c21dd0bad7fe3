// Every real file of the corpus decodes to the node graph its census row records,
// passes the topology checker (real files are the judge of what it assumes), and
// survives encoding to text and to binary unchanged.
#include <gtest/gtest.h>

#include <cstdlib>

#include "TopologyCheck.h"
#include "XtTestUtil.h"

namespace xt = meld::xt;

namespace {

// Census columns that hold a node count under the node type's own name.
const char* const kTypeColumns[] = {
    "ASSEMBLY", "INSTANCE",     "FACE",   "EDGE",         "VERTEX",       "LINE",      "CIRCLE",
    "ELLIPSE",  "B_CURVE",      "INTERSECTION", "TRIMMED_CURVE", "SP_CURVE", "PE_CURVE", "PLANE",
    "CYLINDER", "CONE",         "SPHERE", "TORUS",        "BLENDED_EDGE", "BLEND_BOUND", "OFFSET_SURF",
    "B_SURFACE", "SWEPT_SURF",  "SPUN_SURF", "PE_SURF"};

int countOf(const std::map<std::string, int>& counts, const std::string& type) {
  auto it = counts.find(type);
  return it == counts.end() ? 0 : it->second;
}

std::map<int, int> bodyTypes(const xt::Graph& g) {
  std::map<int, int> types;
  for (size_t i = 0; i < g.size(); ++i)
    if (g.nodes()[i].type == 12) ++types[static_cast<int>(g.field(i, "body_type").integer())];
  return types;
}

// Attribute definition names as the census writes them: "NAME(type_id);..." sorted.
std::string attribDefs(const xt::Graph& g) {
  std::vector<std::string> names;
  for (size_t i = 0; i < g.size(); ++i) {
    if (g.nodes()[i].type != 80) continue;
    long id = g.find(g.field(i, "identifier").integer());
    std::string name = id < 0 ? "?" : g.field(static_cast<size_t>(id), size_t(0)).text();
    names.push_back(name + "(" + std::to_string(g.field(i, "type_id").integer()) + ")");
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  std::string out;
  for (const auto& n : names) out += (out.empty() ? "" : ";") + n;
  return out;
}

void expectMatchesCensus(const xt::Graph& g, std::map<std::string, std::string>& row) {
  auto counts = g.countByType();
  EXPECT_EQ(static_cast<int>(g.size()), std::stoi(row["nodes"]));
  EXPECT_EQ(g.nodes().front().layout->name, row["root"]);
  EXPECT_EQ(g.prefix.schemaKey.rfind(row["schema_key"], 0), 0u) << g.prefix.schemaKey;
  EXPECT_EQ(countOf(counts, "BODY"), std::stoi(row["bodies"]));
  auto types = bodyTypes(g);
  EXPECT_EQ(types[1], std::stoi(row["solid"]));
  EXPECT_EQ(types[2], std::stoi(row["wire"]));
  EXPECT_EQ(types[3], std::stoi(row["sheet"]));
  EXPECT_EQ(types[6], std::stoi(row["general"]));
  for (const char* type : kTypeColumns) EXPECT_EQ(countOf(counts, type), std::stoi(row[type])) << type;
  for (const auto& item : xttest::split(row["other_types"], ';')) {
    if (item.empty()) continue;
    auto pair = xttest::split(item, ':');
    EXPECT_EQ(countOf(counts, pair.at(0)), std::stoi(pair.at(1))) << pair[0];
  }
  EXPECT_EQ(attribDefs(g), row["attrib_defs"]);
}

TEST(Corpus, EveryFileDecodesToItsCensusPassesTheCheckerAndSurvivesReencoding) {
  auto corpus = meldtest::corpusDir();
  if (!corpus) GTEST_SKIP() << "corpus folder not present";
  auto census = xttest::referenceDir(*corpus) / "corpus-census.tsv";
  if (!std::filesystem::exists(census)) GTEST_SKIP() << "census not present";
  auto rows = xttest::readTsv(census);
  ASSERT_GT(rows.size(), 40u);
  for (auto& row : rows) {
    SCOPED_TRACE(row["file"]);
    std::string bytes = meldtest::readFile(*corpus / row["file"]);
    ASSERT_FALSE(bytes.empty());
    xt::Graph original;
    ASSERT_NO_THROW(original = xt::decode(bytes));
    EXPECT_EQ(original.trailingBytes, 0u);
    expectMatchesCensus(original, row);
    xt::TopologyReport report = xt::checkTopology(original);
    EXPECT_TRUE(report.ok()) << report.problems.front();
    EXPECT_FALSE(report.bodies.empty());
    for (auto format : {xt::Format::Text, xt::Format::NeutralBinary}) {
      SCOPED_TRACE(xt::formatName(format));
      xt::EncodeOptions options;
      options.format = format;
      std::string encoded = xt::encode(original, options);
      xt::Graph again = xt::decode(encoded);
      std::string why;
      EXPECT_TRUE(xt::sameGraph(original, again, &why)) << why;
      EXPECT_EQ(again.prefix.schemaKey, std::string(xt::kWriterSchemaKey) + "_13006");
      EXPECT_EQ(again.danglingPointers, 0);
      if (format != xt::Format::Text) continue;
      std::stringstream lines(encoded);
      int n = 0;
      for (std::string line; std::getline(lines, line); ++n) {
        ASSERT_LE(line.size(), 80u) << "line " << n;
        ASSERT_FALSE(!line.empty() && line.back() == ' ') << "line " << n << " ends in a space";
      }
    }
  }
}

}  // namespace

// Under CTest (which sets MELD_SOURCE_DIR) the configured corpus folder must
// reach the test too; otherwise a corpus anywhere but the default place is
// silently not found and every corpus test skips.
TEST(CorpusSetting, ReachesTestsRunByCTest) {
  if (!std::getenv("MELD_SOURCE_DIR")) GTEST_SKIP() << "not run by CTest";
  const char* dir = std::getenv("MELD_CORPUS_DIR");
  ASSERT_NE(dir, nullptr);
  EXPECT_STRNE(dir, "");
}
