#include <gtest/gtest.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <boost/lexical_cast.hpp>
#include <cstring>
#include <stdexcept>

#include "fileop/file_operator.h"
#include "support.h"
#include "uactask/task_factory.h"
#include "uactask/task_file_op.h"
#include "uactask/task_runner.h"
#include "uactask/task_scheduler.h"
#include "xmlstore/xml_parse.h"

namespace {

TEST(TaskFactory, MakesTheTwoKinds) {
  for (std::int32_t type : {0, 1}) {
    boost::shared_ptr<IUACTask> owner;
    ASSERT_TRUE(CreateTask(type, owner));
    EXPECT_EQ(owner->GetType(), type);
    const boost::shared_ptr<IUACTask> before = owner;
    EXPECT_TRUE(CreateTask(2, owner)) << "an unknown type leaves the owner as it is";
    EXPECT_EQ(owner, before);
  }
  for (std::int32_t type : {2, -1, INT32_MAX}) {
    boost::shared_ptr<IUACTask> owner;
    EXPECT_FALSE(CreateTask(type, owner));
    EXPECT_EQ(owner, nullptr);
  }
}

class OtherTask : public UACTaskBase {
 public:
  OtherTask() : UACTaskBase(-7) {}
  bool Run() override { return TaskFilePath() == "file" && Params().at(3) == "three"; }
};

TEST(TaskBase, HoldsTypePathAndParams) {
  const TestFolder folder;
  OtherTask task;
  EXPECT_TRUE(task.SetTaskFile("file"));
  EXPECT_TRUE(task.SetParams({{9, "replaced"}}));
  EXPECT_TRUE(task.SetParams({{3, "three"}}));
  EXPECT_TRUE(task.Run());
  EXPECT_FALSE(task.SaveTaskInfos(folder / "none.ini"));
  EXPECT_EQ(folder.Contents(), Tree());
  WriteFileBytes(folder / "t.ini", "");
  EXPECT_TRUE(task.SaveTaskInfos(folder / "t.ini"));
  EXPECT_EQ(ReadFileBytes(folder / "t.ini"), "[Task]\r\ntype=-7\r\n");
}

TEST(TaskRunner, TakesAVanishedFileForDone) { EXPECT_TRUE(RunTaskFile("none.ini")); }

TEST(FileOpTask, WritesItsTaskFile) {
  const TestFolder folder;
  const std::string file = folder / "t.ini";
  WriteFileBytes(file, "");
  UACTaskFileOp task;
  EXPECT_FALSE(task.SaveTaskInfos(file));
  task.SetParams({{8, "a"}, {9, "b"}});
  EXPECT_FALSE(task.SaveTaskInfos(file));
  EXPECT_EQ(ReadFileBytes(file), "");
  task.SetParams({{8, "C:/list.xml"}});
  EXPECT_FALSE(task.SaveTaskInfos(folder / "none.ini"));
  EXPECT_TRUE(task.SaveTaskInfos(file));
  EXPECT_EQ(ReadFileBytes(file), "[Task]\r\ntype=1\r\nxml_path=C:/list.xml\r\n");
}

TEST(FileOpTask, EnrichesTheExceptionsOfWriting) {
  const TestFolder folder;
  const std::string file = folder / "t.ini";
  const struct {
    TaskParams params;
    const char* what;
    std::string list;
  } kCases[] = {{{{7, "x"}}, "invalid map<K, T> key", ""},
                {{{8, "C:/list.xml"}}, "invalid string position", "C:/list.xml"}};
  for (const auto& c : kCases) {
    WriteFileBytes(file, "[Task\r\n");
    UACTaskFileOp task;
    task.SetParams(c.params);
    try {
      task.SaveTaskInfos(file);
      FAIL() << "nothing thrown";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), c.what);
      const auto* call = boost::get_error_info<errinfo_func_and_args>(e);
      ASSERT_NE(call, nullptr);
      EXPECT_EQ(*call, "corekit::CIniFile::SetValue xml_path," + c.list + ",Task," + file);
      const auto* line = boost::get_error_info<boost::throw_line>(e);
      const auto* source = boost::get_error_info<boost::throw_file>(e);
      const auto* function = boost::get_error_info<boost::throw_function>(e);
      ASSERT_TRUE(line && source && function);
      EXPECT_EQ(*line, 102);
      EXPECT_STREQ(*source, "uactask/uactaskfileop");
      EXPECT_STREQ(*function,
                   "bool __cdecl UACTaskFileOp::SaveTaskInfos(class std::basic_string<char,struct "
                   "std::char_traits<char>,class std::allocator<char> >)");
    }
    EXPECT_EQ(ReadFileBytes(file), "[Task\r\n");
  }
}

#ifdef __MINGW32__
// Applications call the interfaces across module borders: by slot, in the order agreed.
template <typename Member>
std::ptrdiff_t Slot(Member member) {
  std::ptrdiff_t word = 0;  // a pointer to a virtual member starts with its offset, plus one
  std::memcpy(&word, &member, sizeof word);
  return (word - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(Interfaces, KeepTheirSlots) {
  const std::ptrdiff_t task[] = {Slot(&IUACTask::SetTaskFile), Slot(&IUACTask::Run),
                                 Slot(&IUACTask::SaveTaskInfos), Slot(&IUACTask::SetParams),
                                 Slot(&IUACTask::GetType)};
  for (std::size_t i = 0; i < std::size(task); ++i) EXPECT_EQ(task[i], std::ptrdiff_t(i));

  // Here a virtual destructor takes two entries where other compilers give it one.
  const std::ptrdiff_t operations[] = {
      Slot(&tk::IFileOperator::AddFileCopy), Slot(&tk::IFileOperator::AddDirectoryCopy),
      Slot(&tk::IFileOperator::ClearOperations), Slot(&tk::IFileOperator::Execute)};
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    EXPECT_EQ(operations[i], std::ptrdiff_t(i + 2));
  }
  using X = IXMLParse;
  const std::ptrdiff_t store[] = {
      Slot(&X::Clone),           Slot(&X::GetFloatVector),  Slot(&X::GetIntVector),
      Slot(&X::GetStringVector), Slot(&X::GetFloat),        Slot(&X::GetInt64),
      Slot(&X::GetInt),          Slot(&X::GetString),       Slot(&X::PutFloatVector),
      Slot(&X::PutIntVector),    Slot(&X::PutStringVector), Slot(&X::PutFloat),
      Slot(&X::PutInt64),        Slot(&X::PutInt),          Slot(&X::PutString),
      Slot(&X::SetFloatVector),  Slot(&X::SetIntVector),    Slot(&X::SetStringVector),
      Slot(&X::SetFloatAttr),    Slot(&X::SetInt64Attr),    Slot(&X::SetIntAttr),
      Slot(&X::SetStringAttr),   Slot(&X::SetFloat),        Slot(&X::SetInt64),
      Slot(&X::SetInt),          Slot(&X::SetString),       Slot(&X::RemoveAttr),
      Slot(&X::Remove),          Slot(&X::RemoveAll),       Slot(&X::LoadString),
      Slot(&X::LoadFile),        Slot(&X::IsLoaded),        Slot(&X::Save),
      Slot(&X::SaveAs),          Slot(&X::GetTree)};
  ASSERT_EQ(std::size(store), 35U);
  for (std::size_t i = 0; i < std::size(store); ++i) EXPECT_EQ(store[i], std::ptrdiff_t(i + 2));
}
#endif

}  // namespace
