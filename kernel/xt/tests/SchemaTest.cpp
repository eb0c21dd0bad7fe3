// Schemas: the built-in base table against the settled TSV, embedded descriptions
// (255, edit scripts, new types), and schema files found by key.
#include <gtest/gtest.h>

#include "XtTestUtil.h"

namespace xt = meld::xt;

namespace {

TEST(BaseSchema, MatchesTheSettledTable) {
  auto corpus = meldtest::corpusDir();
  auto tsv = corpus ? xttest::referenceDir(*corpus) / "xt-schema-13006.tsv" : std::filesystem::path();
  if (!corpus || !std::filesystem::exists(tsv)) GTEST_SKIP() << "reference tables not present";
  const std::map<std::string, std::string> placeholders = {
      {"(deleted_owner)", "old_owner"}, {"(deleted_5)", "list_type"}, {"(deleted_8)", "size_of_entry"}};
  std::map<int, size_t> seen;
  for (auto& row : xttest::readTsv(tsv)) {
    int code = std::stoi(row["node_code"]);
    auto layout = xt::baseSchema().get(code);
    ASSERT_TRUE(layout) << row["node_name"];
    EXPECT_EQ(layout->name, row["node_name"]);
    EXPECT_EQ(layout->inBase, code != 176 && code != 204) << layout->name;
    size_t at = static_cast<size_t>(std::stoi(row["field_order"]) - 1);
    ASSERT_LT(at, layout->fields.size()) << layout->name;
    const xt::FieldDef& f = layout->fields[at];
    auto renamed = placeholders.find(row["field_name"]);
    EXPECT_EQ(f.name, renamed == placeholders.end() ? row["field_name"] : renamed->second);
    if (row["type_letter"] != "?") {
      EXPECT_EQ(std::string(1, f.type), row["type_letter"]) << f.name;
    }
    const std::string& cls = row["node_class_or_count"];
    EXPECT_EQ(f.ptrClass, (cls == "any" || cls == "?") ? 0 : std::stoi(cls)) << f.name;
    EXPECT_EQ(f.nElts, std::stoi(row["n_elements"])) << f.name;
    seen[code] = std::max(seen[code], at + 1);
  }
  for (auto [code, count] : seen) EXPECT_EQ(xt::baseSchema().get(code)->fields.size(), count) << code;
}

// POINT by edit script (node_id, owner, next, previous, an inserted flag, pvec),
// a brand-new variable type 250, and REAL_VALUES unchanged from base.
const std::string kEmbedded = xttest::textPrefix("SCH_1400000_14000_13006") +
                              "29 6 CDCCCI4 flag0 0 1 uCZ5 7 0 0 0 3 1 2 3 "
                              "250 2 4 NEWT8 New type5 count0 0 1 d4 vals0 1 1 fT2 6 9 1.5 2.5 "
                              "83 255 1 8 0.25 29 9 8 0 0 0 4 ?1 0";
// A POINT under a schema that is neither built in nor embedded.
const std::string kUnknownSchemaPoint = xttest::textPrefix("SCH_2500000_25001") + "29 1 5 0 0 0 0 1 2 3 1 0";

// Remembers every key it is asked for and finds nothing.
class RecordingSchemaSource : public xt::SchemaSource {
 public:
  std::vector<std::string> asked;
  std::optional<std::string> find(const std::string& key) override {
    asked.push_back(key);
    return std::nullopt;
  }
};

TEST(EmbeddedSchema, AppliesScriptsNewTypesAndUnchangedMarksAndSurvivesReencoding) {
  xt::Graph g = xt::decode(kEmbedded);
  ASSERT_EQ(g.size(), 4u);
  std::vector<std::string> names;
  for (const auto& f : g.nodes()[0].layout->fields) names.push_back(f.name);
  EXPECT_EQ(names, (std::vector<std::string>{"node_id", "owner", "next", "previous", "flag", "pvec"}));
  EXPECT_EQ(g.field(0, "flag").integer(), 3);
  EXPECT_EQ(g.field(0, "pvec").real(2), 3.0);
  EXPECT_EQ(g.nodes()[1].layout->name, "NEWT");
  EXPECT_EQ(g.field(1, "vals").elements(), 2u);
  EXPECT_EQ(g.field(1, "vals").real(1), 2.5);
  EXPECT_EQ(g.field(2, size_t(0)).real(0), 0.25);
  EXPECT_TRUE(g.field(3, "pvec").isNull());  // second POINT: no description, same layout
  EXPECT_EQ(g.field(3, "owner").integer(), 0);  // pointed at absent node 8
  for (auto format : {xt::Format::Text, xt::Format::NeutralBinary}) {
    xt::EncodeOptions options;
    options.format = format;
    std::string why;
    EXPECT_TRUE(xt::sameGraph(g, xt::decode(xt::encode(g, options)), &why)) << why;
  }
}

// A record's trailing spaces are padding, so a run of 80 spaces cannot be written as
// text: encoding refuses it rather than write data that reads back different.
TEST(EmbeddedSchema, TextWritingRefusesRunsOfEightySpacesAndKeepsShorterOnes) {
  const std::string prefix = xttest::textPrefix("SCH_1400000_14000_13006");
  auto withDescription = [&](size_t spaces) {  // a new type with one int field, one node
    return prefix + "250 1 4 NEWT" + std::to_string(spaces) + " " + std::string(spaces, ' ') + "1 x0 0 1 d5 7 1 0";
  };
  std::string tenCharFields = prefix + "250 10 4 NEWT4 NEWT";  // ten char[8] fields, all spaces
  for (int i = 0; i < 10; ++i) tenCharFields += "2 c" + std::to_string(i) + "0 8 1 c";
  tenCharFields += "5 " + std::string(80, ' ') + "1 0";
  xt::EncodeOptions binary;
  binary.format = xt::Format::NeutralBinary;
  for (const std::string& data : {withDescription(100), withDescription(79), tenCharFields}) {
    xt::Graph g = xt::decode(data);
    ASSERT_EQ(g.size(), 1u);
    try {
      xt::encode(g);
      ADD_FAILURE() << "80 spaces in a row were written as text";
    } catch (const xt::XtError& e) {
      EXPECT_NE(std::string(e.what()).find("80 or more spaces in a row"), std::string::npos) << e.what();
    }
    std::string why;  // binary has no records: written and read back as it is
    xt::Graph again = xt::decode(xt::encode(g, binary));
    EXPECT_TRUE(xt::sameGraph(g, again, &why)) << why;
    EXPECT_EQ(again.nodes()[0].layout->description, g.nodes()[0].layout->description);
  }
  EXPECT_EQ(xt::decode(tenCharFields).field(0, "c9").text(), std::string(8, ' '));
  // 79 spaces (the space after the length, then 78) fit a record with the character after them.
  xt::Graph g = xt::decode(withDescription(78));
  xt::Graph again = xt::decode(xt::encode(g));
  EXPECT_EQ(again.nodes()[0].layout->description, std::string(78, ' '));
  EXPECT_EQ(again.field(0, "x").integer(), 7);
}

// Descriptions embedded in a stream and those of schema files obey the same rules.
TEST(SchemaDescriptions, InconsistentOnesAreRefusedInStreamsAndSchemaFiles) {
  const std::string prefix = xttest::textPrefix("SCH_1400000_14000_13006");
  const std::pair<std::string, std::string> embedded[] = {
      {"29 5 CDCCCI4 flag0 0 1 uCZ5 7 0 0 0 3 1 2 3 1 0", "its count says 5"},
      {"250 255 1 0 1 0", "base 13006, which lacks it"},
      {"29 6 CDCCCI4 flag0 0 1 uCCCZ", "past the last base field"},
      {"29 6 CDCQ", "unknown edit instruction 'Q'"},
      {"250 1 4 NEWT1 x1 f0 0 1 q", "unknown field type 'q'"},
      {"250 2 4 NEWT4 NEWT4 vals0 1 1 fT5 count0 0 1 d", "NEWT: variable-length field vals is not last"},
      {"250 1 4 NEWT4 NE\x01T5 count0 0 1 d", "its description has a non-printable character (code 1)"},
      {"250 1 4 N\tWT4 NEWT5 count0 0 1 d", "its name has a non-printable character (code 9)"},
  };
  for (const auto& [body, reason] : embedded) {
    std::string e = xttest::decodeError(prefix + body);
    EXPECT_NE(e.find(reason), std::string::npos) << body << " -> " << e;
  }
  const std::string point = "29 POINT; Point; 1 7 0\n", nodeId = "node id; d; 1 0 0\n",
                    attributes = "attributes_features; p; 1 1019 0\n";
  const std::string rest = "owner; p; 1 1011 0\nscratch; d; 0 0 0\nnext; p; 1 29 0\nprevious; p; 1 29 0\n"
                           "pvec; v; 1 0 0\n";
  const std::pair<std::string, std::string> files[] = {
      {point + "node\x01id; d; 1 0 0\n" + attributes + rest, "its field name has a non-printable character (code 1)"},
      {"29 PO\x7fNT; Point; 1 7 0\n" + nodeId + attributes + rest, "its name has a non-printable character (code 127)"},
      {"29 POINT; Po\x1bint; 1 7 0\n" + nodeId + attributes + rest,
       "its description has a non-printable character (code 27)"},
      {point + "node id; d; 1 0 1\n" + attributes + rest, "POINT: variable-length field node id is not last"},
      {point + "node id; d; 1 0 -3\n" + attributes + rest, "bad element count -3 for field node id"},
      {point + "node id; d; 1 0 2000000\n" + attributes + rest, "bad element count 2000000 for field node id"},
  };
  for (const auto& [file, reason] : files) {
    xt::MapSchemaSource schemas;
    schemas.add("SCH_2500000_25001", file);
    std::string e = xttest::decodeError(kUnknownSchemaPoint, xttest::withSchemas(&schemas));
    EXPECT_NE(e.find("schema file SCH_2500000_25001: "), std::string::npos) << e;
    EXPECT_NE(e.find(reason), std::string::npos) << e;
  }
  // A memory-only field after the variable one is not in the stream: accepted.
  xt::MapSchemaSource schemas;
  schemas.add("SCH_2500000_25001", point + nodeId + attributes +
                                       "owner; p; 1 1011 0\nnext; p; 1 29 0\nprevious; p; 1 29 0\n"
                                       "pvec; v; 1 0 1\nscratch; d; 0 0 0\n");
  xt::Graph g =
      xt::decode(xttest::textPrefix("SCH_2500000_25001") + "29 1 1 5 0 0 0 0 1 2 3 1 0", xttest::withSchemas(&schemas));
  ASSERT_EQ(g.field(0, "pvec").elements(), 1u);  // one vector
  EXPECT_EQ(g.field(0, "pvec").real(2), 3.0);
}

// Only the key without its base is asked for, and only when the schema is
// neither built in nor embedded; without a file the error names the key.
TEST(SchemaFiles, AreAskedForByKeyWhenNotBuiltInAndNamedWhenMissing) {
  EXPECT_NE(xttest::decodeError(kUnknownSchemaPoint).find("schema SCH_2500000_25001 is not built in"),
            std::string::npos);
  RecordingSchemaSource recording;
  EXPECT_THROW(xt::decode(kUnknownSchemaPoint, xttest::withSchemas(&recording)), xt::XtError);
  EXPECT_EQ(recording.asked, std::vector<std::string>{"SCH_2500000_25001"});
  recording.asked.clear();
  EXPECT_NO_THROW(xt::decode(kEmbedded, xttest::withSchemas(&recording)));
  EXPECT_NO_THROW(
      xt::decode(xttest::textPrefix("SCH_901297_9008") + "17 1 0 0 0 0 0 0 0 0 +1 0", xttest::withSchemas(&recording)));
  EXPECT_TRUE(recording.asked.empty());

  xt::MapSchemaSource schemas;
  schemas.add("SCH_2500000_25001",
              "29 POINT; Point; 1 7 0\n"
              "node id; d; 1 0 0\nattributes_features; p; 1 1019 0\nowner; p; 1 1011 0\n"
              "scratch; d; 0 0 0\nnext; p; 1 29 0\nprevious; p; 1 29 0\npvec; v; 1 0 0\n");
  xt::Graph g = xt::decode(kUnknownSchemaPoint, xttest::withSchemas(&schemas));
  ASSERT_EQ(g.size(), 1u);
  EXPECT_EQ(g.nodes()[0].layout->fields.size(), 6u);  // the memory-only field is not in the stream
  EXPECT_EQ(g.field(0, "pvec").real(0), 1.0);
}

TEST(SchemaKeys, ParseIntoVersionNumberAndBase) {
  xt::SchemaKey embedded = xt::SchemaKey::parse("SCH_3701243_37102_13006");
  EXPECT_EQ(embedded.version, "3701243");
  EXPECT_EQ(embedded.number, 37102);
  EXPECT_EQ(embedded.base, 13006);
  EXPECT_EQ(embedded.name, "SCH_3701243_37102");
  xt::SchemaKey plain = xt::SchemaKey::parse("SCH_901297_9008");
  EXPECT_EQ(plain.version, "901297");
  EXPECT_EQ(plain.number, 9008);
  EXPECT_FALSE(plain.base.has_value());
  EXPECT_EQ(plain.name, "SCH_901297_9008");
}

TEST(SchemaKeys, HostileKeysNeverReachTheSchemaSourceInTextOrBinary) {
  const std::string hostile[] = {
      "/etc/passwd", "SCH_1_../../x", "SCH_1_2/../../etc/passwd", "SCH_1_" + std::string(600, '7'),
      "SCH_" + std::string(600, 'A') + "_1", std::string(1000, '_'), "SCH_1_2_3_4", "SCH_1_2_", "SCH_1_", "SCH__2",
      "SCH_1", "SCH_-1_2", "SCH_1_+2", "SCH_1_2_-3", "sch_1_2", "SCH_1_2 ", "SCH_1_2\t", std::string("SCH_1_2\0x", 10),
      "SCH_1234567890123_2",  // a 13-digit version
      "SCH_1_1234567890",     // a schema number past 9 digits
      "SCH_1_2_99999999999",  // a base past 9 digits
  };
  for (const std::string& key : hostile) {
    RecordingSchemaSource schemas;
    std::string error =
        xttest::decodeError(xttest::textPrefix(key) + "29 1 5 0 0 0 0 1 2 3 1 0", xttest::withSchemas(&schemas));
    EXPECT_NE(error.find("is not of the form SCH_<version>_<schema>[_<base>]"), std::string::npos)
        << key.substr(0, 60) << " -> " << error;
    EXPECT_NE(error.find("schema key '" + key.substr(0, 6)), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    EXPECT_LT(error.size(), 250u) << "the key is shown truncated: " << error;
    EXPECT_TRUE(schemas.asked.empty()) << key.substr(0, 60) << " reached the schema source as " << schemas.asked[0];
  }
  xt::EncodeOptions binary;
  binary.format = xt::Format::NeutralBinary;
  binary.withHeader = false;
  std::string bytes = xt::encode(xt::decode(kEmbedded), binary);
  const std::string written = std::string(xt::kWriterSchemaKey) + "_13006";
  ASSERT_NE(bytes.find(written), std::string::npos);
  bytes.replace(bytes.find(written), written.size(), "SCH_3400000_../../x_130");  // same length
  ASSERT_EQ(bytes.size(), xt::encode(xt::decode(kEmbedded), binary).size());
  RecordingSchemaSource schemas;
  const std::string error = xttest::decodeError(bytes, xttest::withSchemas(&schemas));
  EXPECT_NE(error.find("schema key 'SCH_3400000_../../x_130' is not of the form"), std::string::npos) << error;
  EXPECT_TRUE(schemas.asked.empty());
}

TEST(OlderSchemas, UseTheirOwnLayouts) {
  // A V9 fin has no attributes field; a V11 one does: the same bytes read differently.
  const std::string fin = "17 1 0 0 0 0 0 0 0 0 +1 0";
  xt::Graph v9 = xt::decode(xttest::textPrefix("SCH_901297_9008") + fin);
  EXPECT_EQ(v9.field(0, "sense").integer(), '+');
  EXPECT_THROW(xt::decode(xttest::textPrefix("SCH_1100150_11004") + fin), xt::XtError);
}

}  // namespace
