// One row per field of the built-in layout table (generated into SchemaTable.cpp).
#pragma once

#include <vector>

namespace meld::xt {

struct SchemaRow {
  int code;
  const char* node;
  const char* field;
  char type;
  int ptrClass;
  int nElts;
  bool inBase;     // the node type exists in the base schema 13006
  bool pkVisible;  // the node type carries user fields when the file has them
};

const std::vector<SchemaRow>& schemaRows();

}  // namespace meld::xt
