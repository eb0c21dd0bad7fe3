// libFuzzer target: the XT decoder must turn any input into a graph or an XtError,
// and whatever it accepts must encode and decode again to the same graph.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace xt = meld::xt;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  xt::Graph graph;
  try {
    graph = xt::decode(bytes);
  } catch (const xt::XtError&) {
    return 0;
  }
  for (auto format : {xt::Format::Text, xt::Format::NeutralBinary}) {
    xt::EncodeOptions options;
    options.format = format;
    std::string encoded;
    try {
      encoded = xt::encode(graph, options);
    } catch (const xt::XtError&) {
      continue;  // values a binary field cannot hold are refused, which is fine
    }
    if (!xt::sameGraph(graph, xt::decode(encoded))) std::abort();
  }
  return 0;
}
