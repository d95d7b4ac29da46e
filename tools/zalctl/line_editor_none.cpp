// For a build without libedit.
#include "line_editor.hpp"

namespace zalctl {

std::unique_ptr<LineEditor> LineEditor::open(Waiter& /*waiter*/, Printer& /*printer*/) {
  return nullptr;
}

}  // namespace zalctl
