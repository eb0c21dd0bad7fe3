// The text type handed to message writers. It owns a copy of the message so
// that a writer may keep it beyond the call that produced it.
#pragma once

#include <cstddef>
#include <string>

class KxuString {
 public:
  explicit KxuString(const char* text) : m_text(text ? text : "") {}
  const char* c_str() const { return m_text.c_str(); }
  std::size_t length() const { return m_text.size(); }

 private:
  std::string m_text;
};
