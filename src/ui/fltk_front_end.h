// The front end with real windows.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>

#include "ops/front_end.h"
#include "settings/options.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/event_pump.h"

namespace tallowin {

// Sets the look of all windows. Called once, before the first window is made.
void setLook();

// Shows what flows ask in windows, one above the other. Needs a display; its windows process
// events only while one of these calls runs or a disk is waited for. Once the program has been
// asked to stop it shows nothing more, and every question is answered as by closing its window.
class FltkFrontEnd : public FrontEnd {
 public:
  // Knows the view of every dialog model that the program has. The options are borrowed: the file
  // dialog writes dates as they say at that time.
  explicit FltkFrontEnd(const Options& options);

  MessageResult messageBox(const MessageBox& box) override;
  bool textInput(TextInput& input) override;
  std::size_t choiceBox(const ChoiceBox& box) override;
  std::unique_ptr<ProgressBox> progressBox(const std::string& title, MessageKind icon,
                                           const std::string& text) override;
  std::unique_ptr<ProgressDialog> progressDialog(const std::string& title, const std::string& text,
                                                 const std::string& buttonLabel) override;
  std::optional<std::string> chooseFile(const FileChoice& choice) override;
  // The model's own type has a view; see addView.
  void run(DialogModel& model) override;

 private:
  // Models of type M are shown by a view V, made with V(M&).
  template <typename M, typename V>
  void addView() {
    views_[typeid(M)] = [](DialogModel& model) {
      return std::make_unique<V>(static_cast<M&>(model));
    };
  }

  using MakeView = std::function<std::unique_ptr<DialogView>(DialogModel&)>;
  EventPump pump_;
  std::unordered_map<std::type_index, MakeView> views_;
  const Options& options_;
};

}  // namespace tallowin
