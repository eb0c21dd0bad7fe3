// Node layouts: what fields a node type has, in which order, of which type.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meld::xt {

// Field type letters as the format defines them.
//   u byte, c char, l logical, n short, w unicode char, d int, p pointer,
//   f double, i interval (2 doubles), v vector (3), b box (6), h hvec (3).
// Doubles per element for the real types, 0 otherwise.
inline int realsPerElement(char type) {
  switch (type) {
    case 'f': return 1;
    case 'i': return 2;
    case 'v': case 'h': return 3;
    case 'b': return 6;
    default: return 0;
  }
}
inline bool isRealType(char type) { return realsPerElement(type) > 0; }
inline bool isIntegerType(char type) {
  switch (type) {
    case 'u': case 'c': case 'l': case 'n': case 'w': case 'd': case 'p':
      return true;
    default:
      return false;
  }
}

struct FieldDef {
  std::string name;
  char type = 'd';
  int ptrClass = 0;  // node type or class code for pointers; 0 otherwise or unknown
  int nElts = 0;     // 0 scalar, 1 variable-length (last field), n > 1 fixed array
  bool transmit = true;

  bool isVariable() const { return nElts == 1; }
  int elements() const { return nElts > 1 ? nElts : 1; }  // for fixed fields
  bool operator==(const FieldDef&) const = default;
};

struct NodeLayout {
  int code = 0;
  std::string name;
  std::string description;
  std::vector<FieldDef> fields;
  bool inBase = false;
  bool pkVisible = false;

  bool isVariable() const { return !fields.empty() && fields.back().isVariable(); }
  // Position of a field by name, or -1.
  int find(std::string_view fieldName) const;
  // Same fields (name, type, class, count, transmit) in the same order.
  bool sameFields(const NodeLayout& other) const { return fields == other.fields; }
};

using LayoutPtr = std::shared_ptr<const NodeLayout>;

// The most elements a field may declare (a fixed array's length).
inline constexpr int kMaxFieldElements = 1'000'000;

// What every layout read from outside (an embedded description, a schema file) must
// satisfy: printable ASCII names (they are written back as text), element counts of
// 0 to kMaxFieldElements, and a variable-length field only as the last. Throws
// XtError naming the layout and the field otherwise.
void validateLayout(const NodeLayout& layout);

// A set of layouts keyed by node type.
class Schema {
 public:
  void set(LayoutPtr layout);
  LayoutPtr get(int code) const;
  LayoutPtr byName(std::string_view name) const;
  const std::map<int, LayoutPtr>& all() const { return m_layouts; }

  // Layout editing helpers used to derive one schema version from another.
  NodeLayout& edit(int code);  // copy-on-write
  void insertBefore(int code, std::string_view before, FieldDef field);
  void append(int code, FieldDef field);
  void remove(int code, std::string_view name);
  void replace(int code, std::string_view name, FieldDef field);

 private:
  std::map<int, LayoutPtr> m_layouts;
};

// The base schema 13006 (and, marked not-in-base, the layouts of newer node types).
const Schema& baseSchema();

// The layouts of a file written without an embedded schema, by schema number (the
// second number of the key, e.g. 28002), for the versions whose layouts are known.
std::optional<Schema> builtInSchema(int schemaNumber);

// A schema key as a stream names it: SCH_<modeller version>_<schema number>, and
// with an embedded schema _<base schema number> after it ("SCH_3701243_37102_13006").
// Keys come from the file: parse() admits only that shape (digits, at most 9 in a
// number and 12 in the version) and throws XtError naming the key otherwise, so
// that nothing else ever reaches a schema lookup.
struct SchemaKey {
  std::string version;      // "3701243"
  int number = 0;           // 37102
  std::optional<int> base;  // 13006: the stream describes its layouts against that base
  std::string name;         // "SCH_3701243_37102", as the key writes it: the schema file's name

  static SchemaKey parse(std::string_view key);
};

// Parses a schema file in the format's schema-file notation:
//   <code> <NAME>; <description>; <transmit> <n_fields> <variable>
//   <field name>; <type letter>; <transmit> <pointer class> <element count>
Schema parseSchemaFile(std::string_view text, const std::string& key);

}  // namespace meld::xt
