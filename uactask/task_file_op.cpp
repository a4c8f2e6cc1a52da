#include "uactask/task_file_op.h"

#include <boost/assert/source_location.hpp>
#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/throw_exception.hpp>
#include <new>
#include <stdexcept>

#include "corekit/trace.h"
#include "fileop/file_operator.h"
#include "uactask/operation_list.h"
#include "xmlstore/xml_parse.h"

namespace {

void TraceLine(const std::string& line) { corekit::Trace("%s", line.c_str()); }

template <typename Exception>
[[noreturn]] void Rethrow(const Exception& caught, const std::string& call) {
  // Fixed text by which error reports are matched, whatever this file's name and lines are.
  constexpr boost::source_location kLocation(
      "uactask/uactaskfileop", 102,
      "bool __cdecl UACTaskFileOp::SaveTaskInfos(class std::basic_string<char,struct "
      "std::char_traits<char>,class std::allocator<char> >)");
  boost::throw_exception(boost::enable_error_info(caught) << errinfo_func_and_args(call),
                         kLocation);
}

}  // namespace

bool UACTaskFileOp::Run() {
  const std::string listPath = uactask::ReadParams(TaskFilePath()).at(kXmlPath);

  const boost::shared_ptr<tk::IFileOperator> fileOperator =
      boost::make_shared<FileOperatorNomal>(TraceLine);
  boost::shared_ptr<IXMLParse> store;
  if (CreateXMLParse(store) != 0 || store->LoadFile(listPath) == 0) {
    corekit::Trace("uactask: the operation list \"%s\" cannot be loaded\n", listPath.c_str());
    return false;
  }

  const auto operations = uactask::ReadOperationList(*store);
  if (!operations) {
    corekit::Trace("uactask: \"%s\" holds no operation list, or an item without attributes\n",
                   listPath.c_str());
    return false;
  }
  for (const uactask::Operation& operation : *operations) {
    const auto add =
        operation.isFolder ? &tk::IFileOperator::AddDirectoryCopy : &tk::IFileOperator::AddFileCopy;
    (fileOperator.get()->*add)(operation.source.c_str(), operation.destination.c_str());
  }
  // The task succeeds when every item was attempted; single copies may fail.
  fileOperator->Execute();
  return true;
}

bool UACTaskFileOp::SaveTaskInfos(std::string path) {
  std::string listPath;
  const auto call = [&] {
    return std::string("corekit::CIniFile::SetValue ") + uactask::kParamKeys[kXmlPath] + "," +
           listPath + "," + uactask::kTaskSection + "," + path;
  };
  try {
    if (Params().size() != 1) return false;
    listPath = uactask::RequireEntry(Params(), kXmlPath);
    const bool listWritten = uactask::WriteParam(kXmlPath, listPath, path);
    const bool typeWritten = UACTaskBase::SaveTaskInfos(path);
    return listWritten && typeWritten;
  } catch (const std::out_of_range& caught) {
    Rethrow(caught, call());
  } catch (const std::length_error& caught) {
    Rethrow(caught, call());
  } catch (const std::bad_alloc& caught) {
    Rethrow(caught, call());
  } catch (const std::exception& caught) {
    Rethrow(caught, call());
  }
}
