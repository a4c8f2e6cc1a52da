#include "uactask/task_file_op.h"

#include <boost/assert/source_location.hpp>
#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/throw_exception.hpp>
#include <new>
#include <stdexcept>

#include "fileop/file_operator.h"
#include "inifile/ini_file.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

namespace {

enum Field : std::int32_t { kKey, kSource, kDestination, kItemType };

const TaskParams kFieldNames = {
    {kKey, "key"}, {kSource, "src"}, {kDestination, "dec"}, {kItemType, "type"}};

constexpr char kXmlPathKey[] = "xml_path";

template <typename Exception>
[[noreturn]] void Rethrow(const Exception& caught, const std::string& call) {
  // Fixed text, by which error reports are matched; this file's name and lines do not matter.
  constexpr boost::source_location kLocation(
      "uactask/uactaskfileop", 102,
      "bool __cdecl UACTaskFileOp::SaveTaskInfos(class std::basic_string<char,struct "
      "std::char_traits<char>,class std::allocator<char> >)");
  boost::throw_exception(boost::enable_error_info(caught) << errinfo_func_and_args(call),
                         kLocation);
}

}  // namespace

bool UACTaskFileOp::Run() {
  const std::string listPath =
      corekit::CIniFile::GetValue(kXmlPathKey, kTaskSection, TaskFilePath());

  const boost::shared_ptr<tk::IFileOperator> fileOperator = boost::make_shared<FileOperatorNomal>();
  boost::shared_ptr<IXMLParse> store;
  if (CreateXMLParse(store) != 0 || store->LoadFile(listPath) == 0) return false;

  KeyedRecords items;
  if (ReadKeyedRecords(store->GetTree(), "root.task", items, kFieldNames, "error of read") != 0) {
    return false;
  }
  for (const auto& [key, item] : items) {
    const char* source = RequireEntry(item, kSource).c_str();
    const char* destination = RequireEntry(item, kDestination).c_str();
    if (RequireEntry(item, kItemType) == "dir") {
      fileOperator->AddDirectoryCopy(source, destination);
    } else {
      fileOperator->AddFileCopy(source, destination);
    }
  }
  // The task is done when everything was attempted; single copies may fail.
  fileOperator->Execute();
  return true;
}

bool UACTaskFileOp::SaveTaskInfos(std::string path) {
  std::string listPath;
  const auto call = [&] {
    return std::string("corekit::CIniFile::SetValue ") + kXmlPathKey + "," + listPath + "," +
           kTaskSection + "," + path;
  };
  try {
    if (Params().size() != 1) return false;
    listPath = RequireEntry(Params(), kXmlPath);
    const bool listWritten = corekit::CIniFile::SetValue(kXmlPathKey, listPath, kTaskSection, path);
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
