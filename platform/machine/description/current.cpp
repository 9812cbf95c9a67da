#include "platform/machine/description/current.h"

#include <utility>

#include "platform/text/code_page.h"

namespace machine {
namespace {

std::unique_ptr<Description> g_current;

}  // namespace

const Description *Current() { return g_current.get(); }

void SetCurrent(std::unique_ptr<Description> description) {
  g_current = std::move(description);
  SetCodePage(g_current == nullptr ? kDefaultCodePage : g_current->system.codePage);
}

}  // namespace machine
