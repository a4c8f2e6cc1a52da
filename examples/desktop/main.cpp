// Updates a desktop application, with the shell's progress window: shows what will be done, the
// progress, Cancel, and a summary. Copies from "new" to "installed" in the current directory.
//
// The progress window has its own thread, so it responds while this thread waits in Run. If your
// application has windows, call Run in a worker thread, so that they respond too.

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shlobj.h>

#include <cstdio>
#include <string>

#include "uaclient/uaclient.h"

namespace {

// Does nothing if the shell has no such window.
class ProgressWindow {
 public:
  explicit ProgressWindow(HWND owner) : com_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {
    CoCreateInstance(CLSID_ProgressDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IProgressDialog,
                     reinterpret_cast<void**>(&dialog_));
    if (dialog_ == nullptr) return;
    dialog_->SetTitle(L"Updating Player");
    dialog_->SetCancelMsg(L"The copy that has begun goes on.", nullptr);
    dialog_->StartProgressDialog(owner, nullptr, PROGDLG_AUTOTIME | PROGDLG_NOMINIMIZE, nullptr);
  }
  ~ProgressWindow() {
    if (dialog_ != nullptr) {
      dialog_->StopProgressDialog();
      dialog_->Release();
    }
    if (SUCCEEDED(com_)) CoUninitialize();
  }
  ProgressWindow(const ProgressWindow&) = delete;
  ProgressWindow& operator=(const ProgressWindow&) = delete;

  void Show(const uaclient::Progress& now) {
    if (dialog_ == nullptr) return;
    const std::wstring files =
        std::to_wstring(now.files) + L" of " + std::to_wstring(now.allFiles) + L" files";
    const std::wstring path =
        now.comparing ? L"Comparing with the new files" : now.current.wstring();
    dialog_->SetLine(1, files.c_str(), FALSE, nullptr);
    dialog_->SetLine(2, path.c_str(), TRUE, nullptr);  // TRUE: shortens a long path
    dialog_->SetProgress64(now.bytes, now.allBytes);
  }

  bool IsCancelled() const { return dialog_ != nullptr && dialog_->HasUserCancelled(); }

 private:
  HRESULT com_;
  IProgressDialog* dialog_ = nullptr;
};

// Such as "81 files, 286 MiB, deletes 60 files", for asking whether to go on.
std::wstring Amounts(const uaclient::Report& report) {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::uint64_t deleted = 0;
  for (const uaclient::Step& step : report.steps) {
    files += step.files;
    bytes += step.bytes;
    deleted += step.deletedFiles;
  }
  return std::to_wstring(files) + L" files, " + std::to_wstring(bytes >> 20) + L" MiB, deletes " +
         std::to_wstring(deleted) + L" files";
}

// Show this in a dialog if you have one.
void Summarize(const uaclient::Result& result) {
  const std::wstring text = result.reason.empty() ? L"Done." : result.reason;
  std::wprintf(L"%ls\n", text.c_str());
  for (const uaclient::Item& item : result.items) {
    std::wprintf(L"%ls: %ls %ls\n", item.destination.c_str(), item.done ? L"done" : L"not done",
                 item.reason.c_str());
  }
}

}  // namespace

int main() {
  _setmode(_fileno(stdout), _O_U8TEXT);
  const std::filesystem::path fresh = std::filesystem::current_path() / L"new";
  const std::filesystem::path install = std::filesystem::current_path() / L"installed";
  const HWND owner = nullptr;  // your window

  uaclient::CopyPlan plan;
  plan.ReplaceFolder(fresh / L"help", install / L"help");
  plan.Folder(fresh / L"skins", install / L"skins");
  plan.File(fresh / L"player.ini", install / L"player.ini");

  ProgressWindow window(owner);
  uaclient::Options options;
  options.owner = owner;
  options.confirm = [](const uaclient::Report& report) {
    std::wprintf(L"%ls\n", Amounts(report).c_str());
    return true;  // or the user's answer
  };
  options.progress = [&window](const uaclient::Progress& now) {
    window.Show(now);
    return !window.IsCancelled();
  };
  const uaclient::Result result = uaclient::Run(plan, options);
  Summarize(result);
  return result.status == uaclient::Status::kDone ? 0 : 1;
}
