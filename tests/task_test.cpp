#include <gtest/gtest.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "fileop/file_operator.h"
#include "support.h"
#include "uactask/operation_list.h"
#include "uactask/task_factory.h"
#include "uactask/task_file_op.h"
#include "uactask/task_runner.h"
#include "xmlstore/xml_parse.h"

namespace {

TEST(TaskFactory, MakesTheTwoKinds) {
  boost::shared_ptr<IUACTask> owner;
  for (std::int32_t unknown : {2, -1, INT32_MAX}) EXPECT_FALSE(CreateTask(unknown, owner));
  for (std::int32_t type : {0, 1}) {
    ASSERT_TRUE(CreateTask(type, owner));
    EXPECT_EQ(owner->GetType(), type);
    ASSERT_TRUE(CreateTask(2, owner)) << "an unknown type leaves the owner as it is";
    EXPECT_EQ(owner->GetType(), type);
  }
}

TEST(TaskRunner, TakesAVanishedFileForDone) { EXPECT_TRUE(RunTaskFile("none.ini")); }

TEST(OperationList, IsReadAsItWasWritten) {
  std::vector<uactask::Operation> written;
  written.reserve(11);
  for (int i = 0; i < 11; ++i) written.push_back({"<" + std::to_string(i), "\"é", i % 2 == 0});
  const std::string list = uactask::FormatOperationList(written);
  XMLParse store;
  ASSERT_EQ(store.LoadString(list.c_str(), 0), 1);
  const auto read = uactask::ReadOperationList(store);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->at(10).source + read->at(10).destination, "<10\"é");
  EXPECT_EQ(uactask::FormatOperationList(*read), list);
}

TEST(FileOpTask, WritesItsTaskFile) {
  const TestFolder folder;
  const std::string file = folder / "t.ini";
  WriteFileBytes(file, "");
  UACTaskFileOp task;
  EXPECT_FALSE(task.SaveTaskInfos(file));
  task.SetParams({{8, "a"}, {9, "b"}});
  EXPECT_FALSE(task.SaveTaskInfos(file));
  EXPECT_EQ(ReadFileBytes(file), "");
  EXPECT_TRUE(task.SetParams({{8, "C:/list.xml"}}));
  EXPECT_FALSE(task.SaveTaskInfos(folder / "none.ini"));
  EXPECT_TRUE(task.SaveTaskInfos(file));
  EXPECT_EQ(ReadFileBytes(file), "[Task]\r\ntype=1\r\nxml_path=C:/list.xml\r\n");
}

TEST(FileOpTask, EnrichesTheExceptionsOfWriting) {
  const TestFolder folder;
  const std::string file = folder / "t.ini";
  for (const bool wrongParam : {true, false}) {
    WriteFileBytes(file, "[Task\r\n");
    UACTaskFileOp task;
    task.SetParams({{wrongParam ? 7 : 8, "C:/list.xml"}});
    try {
      task.SaveTaskInfos(file);
      FAIL() << "nothing thrown";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), wrongParam ? "invalid map<K, T> key" : "invalid string position");
      const auto* call = boost::get_error_info<errinfo_func_and_args>(e);
      const auto* line = boost::get_error_info<boost::throw_line>(e);
      const auto* source = boost::get_error_info<boost::throw_file>(e);
      const auto* function = boost::get_error_info<boost::throw_function>(e);
      ASSERT_TRUE(call && line && source && function);
      const std::string list = wrongParam ? "" : "C:/list.xml";
      EXPECT_EQ(*call, "corekit::CIniFile::SetValue xml_path," + list + ",Task," + file);
      EXPECT_EQ(*line, 102);
      EXPECT_STREQ(*source, "uactask/uactaskfileop");
      EXPECT_STREQ(*function,
                   "bool __cdecl UACTaskFileOp::SaveTaskInfos(class std::basic_string<char,struct "
                   "std::char_traits<char>,class std::allocator<char> >)");
    }
    EXPECT_EQ(ReadFileBytes(file), "[Task\r\n");
  }
}

// Applications call the interfaces across module borders: by slot, in the order agreed. An object
// whose every slot answers with its number tells which one the compiler calls for a member.
template <std::size_t kSlot>
std::size_t Number(void*) {
  return kSlot;
}

template <std::size_t... kSlots>
const void* Numbers(std::index_sequence<kSlots...>) {
  static std::size_t (*const numbers[])(void*) = {Number<kSlots>...};
  return numbers;
}

template <typename Interface, typename Member>
std::size_t Slot(Member Interface::* member) {
  std::size_t (Interface::*asked)() = nullptr;
  static_assert(sizeof asked == sizeof member);
  std::memcpy(&asked, &member, sizeof asked);
  const void* object = Numbers(std::make_index_sequence<64>());
  return (reinterpret_cast<Interface*>(&object)->*asked)();
}

template <typename... Members>
void ExpectSlotsFrom(std::size_t slot, Members... members) {
  for (const std::size_t found : {Slot(members)...}) EXPECT_EQ(found, slot++);
}

#ifdef _MSC_VER
const std::size_t kBehindDestructor = 1;
#else
const std::size_t kBehindDestructor = 2;
#endif

TEST(Interfaces, KeepTheirSlots) {
  using T = IUACTask;
  ExpectSlotsFrom(0, &T::SetTaskFile, &T::Run, &T::SaveTaskInfos, &T::SetParams, &T::GetType);
  using F = tk::IFileOperator;
  ExpectSlotsFrom(kBehindDestructor, &F::AddFileCopy, &F::AddDirectoryCopy, &F::ClearOperations,
                  &F::Execute);
  using X = IXMLParse;
  ExpectSlotsFrom(kBehindDestructor, &X::Clone, &X::GetFloatVector, &X::GetIntVector,
                  &X::GetStringVector, &X::GetFloat, &X::GetInt64, &X::GetInt, &X::GetString,
                  &X::PutFloatVector, &X::PutIntVector, &X::PutStringVector, &X::PutFloat,
                  &X::PutInt64, &X::PutInt, &X::PutString, &X::SetFloatVector, &X::SetIntVector,
                  &X::SetStringVector, &X::SetFloatAttr, &X::SetInt64Attr, &X::SetIntAttr,
                  &X::SetStringAttr, &X::SetFloat, &X::SetInt64, &X::SetInt, &X::SetString,
                  &X::RemoveAttr, &X::Remove, &X::RemoveAll, &X::LoadString, &X::LoadFile,
                  &X::IsLoaded, &X::Save, &X::SaveAs, &X::GetTree);
}

}  // namespace
