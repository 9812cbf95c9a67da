#include "platform/machine/description/current.h"

#include <utility>

#include "platform/text/code_page.h"

namespace machine {
namespace {

std::unique_ptr<Description> current;

}  // namespace

const Description *Current() { return current.get(); }

void SetCurrent(std::unique_ptr<Description> description) {
  current = std::move(description);
  SetCodePage(current == nullptr ? kDefaultCodePage : current->system.codePage);
}

}  // namespace machine
