#include "Schema.h"

#include <charconv>

#include "SchemaTable.h"
#include "XtError.h"

namespace meld::xt {

int NodeLayout::find(std::string_view fieldName) const {
  for (size_t i = 0; i < fields.size(); ++i)
    if (fields[i].name == fieldName) return static_cast<int>(i);
  return -1;
}

// Names are identifiers. Anything else (a newline, a control byte) marks a corrupt
// file, and could not be written as text.
static void checkPrintable(const NodeLayout& layout, const std::string& name, const char* what) {
  for (char c : name) {
    auto code = static_cast<unsigned char>(c);
    if (code < 0x20 || code > 0x7E)
      throw XtError("layout of node type " + std::to_string(layout.code) + ": its " + what +
                    " has a non-printable character (code " + std::to_string(code) + ")");
  }
}

void validateLayout(const NodeLayout& layout) {
  checkPrintable(layout, layout.name, "name");
  checkPrintable(layout, layout.description, "description");
  for (size_t i = 0; i < layout.fields.size(); ++i) {
    const FieldDef& f = layout.fields[i];
    checkPrintable(layout, f.name, "field name");
    if (f.nElts < 0 || f.nElts > kMaxFieldElements)
      throw XtError(layout.name + ": bad element count " + std::to_string(f.nElts) + " for field " + f.name);
    if (f.isVariable() && i + 1 < layout.fields.size())
      throw XtError(layout.name + ": variable-length field " + f.name + " is not last");
  }
}

void Schema::set(LayoutPtr layout) { m_layouts[layout->code] = std::move(layout); }

LayoutPtr Schema::get(int code) const {
  auto it = m_layouts.find(code);
  return it == m_layouts.end() ? nullptr : it->second;
}

LayoutPtr Schema::byName(std::string_view name) const {
  for (const auto& [code, layout] : m_layouts)
    if (layout->name == name) return layout;
  return nullptr;
}

NodeLayout& Schema::edit(int code) {
  auto it = m_layouts.find(code);
  if (it == m_layouts.end()) throw XtError("schema edit: no node type " + std::to_string(code));
  auto copy = std::make_shared<NodeLayout>(*it->second);
  it->second = copy;
  return *copy;
}

static size_t positionOf(const NodeLayout& layout, std::string_view name) {
  int at = layout.find(name);
  if (at < 0) throw XtError("schema edit: " + layout.name + " has no field " + std::string(name));
  return static_cast<size_t>(at);
}

void Schema::insertBefore(int code, std::string_view before, FieldDef field) {
  NodeLayout& layout = edit(code);
  layout.fields.insert(layout.fields.begin() + positionOf(layout, before), std::move(field));
}

void Schema::append(int code, FieldDef field) { edit(code).fields.push_back(std::move(field)); }

void Schema::remove(int code, std::string_view name) {
  NodeLayout& layout = edit(code);
  layout.fields.erase(layout.fields.begin() + positionOf(layout, name));
}

void Schema::replace(int code, std::string_view name, FieldDef field) {
  NodeLayout& layout = edit(code);
  layout.fields[positionOf(layout, name)] = std::move(field);
}

static Schema buildBaseSchema() {
  std::map<int, std::shared_ptr<NodeLayout>> layouts;
  for (const SchemaRow& row : schemaRows()) {
    auto& layout = layouts[row.code];
    if (!layout) {
      layout = std::make_shared<NodeLayout>();
      layout->code = row.code;
      layout->name = row.node;
      layout->inBase = row.inBase;
      layout->pkVisible = row.pkVisible;
    }
    layout->fields.push_back(FieldDef{row.field, row.type, row.ptrClass, row.nElts, true});
  }
  Schema schema;
  for (auto& [code, layout] : layouts) schema.set(layout);
  return schema;
}

const Schema& baseSchema() {
  static const Schema base = buildBaseSchema();
  return base;
}

// ---- schema keys ----

namespace {

// Reads 1 to maxDigits digits at `at`; nothing when there are none or too many.
std::optional<std::string_view> digitsAt(std::string_view key, size_t& at, size_t maxDigits) {
  size_t start = at;
  while (at < key.size() && key[at] >= '0' && key[at] <= '9') ++at;
  if (at == start || at - start > maxDigits) return std::nullopt;
  return key.substr(start, at - start);
}

int toInt(std::string_view digits) {  // at most 9 digits: fits an int
  int value = 0;
  for (char c : digits) value = value * 10 + (c - '0');
  return value;
}

// The key as an error message may show it: one line, printable, not too long.
std::string shownKey(std::string_view key) {
  constexpr size_t kShown = 40;
  std::string out;
  for (char c : key.substr(0, kShown))
    out.push_back(static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E ? '?' : c);
  if (key.size() > kShown) out += "... (" + std::to_string(key.size()) + " characters)";
  return out;
}

}  // namespace

SchemaKey SchemaKey::parse(std::string_view key) {
  constexpr size_t kVersionDigits = 12, kNumberDigits = 9;
  auto refuse = [&]() -> SchemaKey {
    throw XtError("schema key '" + shownKey(key) + "' is not of the form SCH_<version>_<schema>[_<base>]");
  };
  if (key.substr(0, 4) != "SCH_") return refuse();
  size_t at = 4;
  SchemaKey out;
  auto version = digitsAt(key, at, kVersionDigits);
  if (!version || at >= key.size() || key[at] != '_') return refuse();
  out.version = std::string(*version);
  ++at;
  auto number = digitsAt(key, at, kNumberDigits);
  if (!number) return refuse();
  out.number = toInt(*number);
  out.name = std::string(key.substr(0, at));
  if (at == key.size()) return out;
  if (key[at] != '_') return refuse();
  ++at;
  auto base = digitsAt(key, at, kNumberDigits);
  if (!base || at != key.size()) return refuse();
  out.base = toInt(*base);
  return out;
}

// ---- schema files ----

static std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

static std::vector<std::string_view> splitOn(std::string_view s, char sep) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (size_t i = 0; i <= s.size(); ++i) {
    if (i == s.size() || s[i] == sep) {
      parts.push_back(trim(s.substr(start, i - start)));
      start = i + 1;
    }
  }
  return parts;
}

static std::vector<int> numbersIn(std::string_view s, const std::string& where) {
  std::vector<int> out;
  while (!(s = trim(s)).empty()) {
    int value = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc()) throw XtError(where + ": expected a number in '" + std::string(s) + "'");
    out.push_back(value);
    s.remove_prefix(static_cast<size_t>(end - s.data()));
  }
  return out;
}

Schema parseSchemaFile(std::string_view text, const std::string& key) {
  Schema schema;
  std::shared_ptr<NodeLayout> current;
  int fieldsLeft = 0;
  int lineNo = 0;
  auto finish = [&] {
    if (current) schema.set(current);
    current.reset();
  };
  while (!text.empty()) {
    size_t eol = text.find('\n');
    std::string_view line = trim(text.substr(0, eol));
    text.remove_prefix(eol == std::string_view::npos ? text.size() : eol + 1);
    ++lineNo;
    if (line.empty()) continue;
    const std::string where = "schema file " + key + " line " + std::to_string(lineNo);
    auto parts = splitOn(line, ';');
    if (parts.size() != 3) throw XtError(where + ": expected three ';'-separated parts");
    auto numbers = numbersIn(parts[2], where);
    if (numbers.size() != 3) throw XtError(where + ": expected three numbers after the last ';'");
    if (fieldsLeft == 0) {
      finish();
      auto head = splitOn(parts[0], ' ');
      if (head.size() != 2) throw XtError(where + ": expected '<code> <NAME>'");
      current = std::make_shared<NodeLayout>();
      current->code = numbersIn(head[0], where).at(0);
      current->name = std::string(head[1]);
      current->description = std::string(parts[1]);
      fieldsLeft = numbers[1];
      if (auto base = baseSchema().get(current->code)) current->pkVisible = base->pkVisible;
      if (fieldsLeft < 0 || fieldsLeft > 255) throw XtError(where + ": bad field count");
      continue;
    }
    if (parts[1].size() != 1 || !(isIntegerType(parts[1][0]) || isRealType(parts[1][0])))
      throw XtError(where + ": unknown field type '" + std::string(parts[1]) + "'");
    current->fields.push_back(FieldDef{std::string(parts[0]), parts[1][0], numbers[1], numbers[2],
                                       numbers[0] != 0});
    --fieldsLeft;
  }
  if (fieldsLeft != 0) throw XtError("schema file " + key + ": ends inside a node description");
  finish();
  // Memory-only fields are never written: keep only what the stream carries.
  for (auto& [code, layout] : schema.all()) {
    NodeLayout& edited = schema.edit(code);
    std::erase_if(edited.fields, [](const FieldDef& f) { return !f.transmit && !f.isVariable(); });
    try {
      validateLayout(edited);
    } catch (const XtError& e) {
      throw XtError("schema file " + key + ": " + e.what());
    }
  }
  return schema;
}

}  // namespace meld::xt
