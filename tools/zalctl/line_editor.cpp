#include "line_editor.hpp"

#include <histedit.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

namespace zalctl {
namespace {

constexpr int kHistorySize = 500;

struct EditorEnd {
  void operator()(EditLine* editor) const noexcept { el_end(editor); }
};
struct HistoryEnd {
  void operator()(History* history) const noexcept { history_end(history); }
};

class TerminalEditor : public LineEditor {
 public:
  TerminalEditor(Waiter& waiter, Printer& printer)
      : waiter_{waiter},
        printer_{printer},
        history_{history_init()},
        editor_{el_init("zalctl", stdin, stdout, stderr)} {
    static_cast<void>(std::setlocale(LC_CTYPE, ""));
    if (const char* home = std::getenv("HOME"); home != nullptr) file_ = std::string{home} + "/.zalctl_history";
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, kHistorySize);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    if (!file_.empty()) history(history_.get(), &event, H_LOAD, file_.c_str());
    const auto prompt = [](EditLine*) { return const_cast<char*>("> "); };
    const auto readCharacter = [](EditLine* editor, wchar_t* character) {
      TerminalEditor* self = nullptr;
      el_get(editor, EL_CLIENTDATA, &self);
      return self->readCharacter(*character);
    };
    el_set(editor_.get(), EL_CLIENTDATA, this);
    el_set(editor_.get(), EL_PROMPT, static_cast<char* (*)(EditLine*)>(prompt));
    el_set(editor_.get(), EL_GETCFN, static_cast<int (*)(EditLine*, wchar_t*)>(readCharacter));
    el_set(editor_.get(), EL_HIST, history, history_.get());
    el_set(editor_.get(), EL_EDITOR, "emacs");
    el_source(editor_.get(), nullptr);
  }

  ~TerminalEditor() override {
    HistEvent event{};
    if (!file_.empty()) history(history_.get(), &event, H_SAVE, file_.c_str());
  }

  std::optional<std::string> readLine() override {
    printer_.hold([this] { waiter_.notify(); });
    int count = 0;
    const char* text = el_gets(editor_.get(), &count);
    const bool isLine = text != nullptr && count > 0;
    if (!isLine) std::fputs("\n", stdout);
    printer_.release();
    if (!isLine) return std::nullopt;
    std::string line{text, static_cast<std::size_t>(count)};
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    HistEvent event{};
    if (!line.empty()) history(history_.get(), &event, H_ENTER, line.c_str());
    return line;
  }

 private:
  /// For the editor: 1 and the next character, or 0 at the end.
  int readCharacter(wchar_t& character) {
    std::mbstate_t state{};
    for (;;) {
      if (printer_.showHeld()) el_set(editor_.get(), EL_REFRESH);
      if (waiter_.interrupted()) return 0;
      if (!waiter_.readableOrChanged(STDIN_FILENO)) continue;
      char byte = 0;
      if (read(STDIN_FILENO, &byte, 1) != 1) return 0;
      const std::size_t length = std::mbrtowc(&character, &byte, 1, &state);
      if (length == static_cast<std::size_t>(-2)) continue;  // there is more of it
      if (length != static_cast<std::size_t>(-1)) return 1;
      state = {};  // no character: it is left out
    }
  }

  Waiter& waiter_;
  Printer& printer_;
  std::string file_;
  std::unique_ptr<History, HistoryEnd> history_;
  std::unique_ptr<EditLine, EditorEnd> editor_;
};

}  // namespace

std::unique_ptr<LineEditor> LineEditor::open(Waiter& waiter, Printer& printer) {
  if (!printer.isInteractive()) return nullptr;
  return std::make_unique<TerminalEditor>(waiter, printer);
}

}  // namespace zalctl
