#include "zelva/src/runtime/serialization.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "serialization_test_util.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::LogCapture;
using testing_objects::TempPath;
using testing_objects::WriteText;

class Named : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(value, "value");
  }
  int32_t value = 0;
};

TEST(Serializable, TypeNamesAreCutAfterTheLastColon) {
  Named named;
  EXPECT_EQ(named.GetTypeName(), "Named");
  EXPECT_EQ(named.GetFullTypeName(), "zelva::runtime::(anonymous namespace)::Named");
}

TEST(Serializable, FromFileDispatchesByExtension) {
  Named source;
  source.value = 17;
  const std::string json = TempPath("model.json");
  source.ToFile(json, "json");
  Named read;
  read.FromFile(json);
  EXPECT_EQ(read.value, 17);

  for (const char* extension : {".zvmod", ".zvcfg", ".zvmods", ".zvcfgs"}) {
    SCOPED_TRACE(extension);
    const std::string path = TempPath(std::string("model") + extension);
    source.value = static_cast<int32_t>(path.size());
    source.ToFile(path, "bin");
    Named bin;
    bin.FromFile(path);
    EXPECT_EQ(bin.value, source.value);
  }

  // Binary content behind a JSON name goes to the JSON reader, and fails there.
  const std::string wrong = TempPath("binary.json");
  source.ToFile(wrong, "bin");
  EXPECT_THROW(read.FromFile(wrong), std::runtime_error);
}

TEST(Serializable, FromFileRefusesOtherNames) {
  Named named;
  {
    LogCapture log;
    EXPECT_THROW(named.FromFile("/tmp/model.txt"), std::runtime_error);
    EXPECT_TRUE(log.Contains("Unknow nets file type, file path: /tmp/model.txt."));
    EXPECT_THROW(named.FromFile("model.JSON"), std::runtime_error);
  }
  // Too short for one of the endings tested: an out-of-range position, not a mismatch.
  for (const char* path : {"", "m.js", "a.bin", "ab.bin"}) {
    SCOPED_TRACE(path);
    try {
      named.FromFile(path);
      ADD_FAILURE() << "no failure";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid string position");
    }
  }
  // A 6-character ".zvmod" path matches before the 7-character test is reached.
  LogCapture log;
  EXPECT_THROW(named.FromFile(".zvmod"), std::runtime_error);
  EXPECT_TRUE(log.Contains("cant construct FILEReader object using a NULL ptr."));
}

TEST(Serializable, UnknownWordsAreLoggedAndChangeNothing) {
  const std::string path = TempPath("named.json");
  Named named;
  named.value = 3;
  named.ToFile(path, "json");
  named.value = 4;
  LogCapture log;
  named.FromFile(path, "xml");
  EXPECT_EQ(named.value, 4);
  EXPECT_TRUE(log.Contains("Unknow file type, file path: " + path + "."));
  named.FromBin(path, "int8");
  EXPECT_TRUE(log.Contains("Unknow precision type: int8, try fp16 or fp32"));
  EXPECT_EQ(named.value, 4);

  const std::string never = TempPath("never.zvmod");
  named.ToFile(never, "yaml");
  named.ToBin(never, "fp64");
  EXPECT_TRUE(log.Contains("Unknow precision type: fp64, try fp16 or fp32"));
  EXPECT_EQ(std::fopen(never.c_str(), "rb"), nullptr);
}

TEST(Serializable, JsonFilesThatCannotBeRead) {
  Named named;
  LogCapture log;
  const std::string missing = TempPath("missing.json");
  EXPECT_THROW(named.FromFile(missing), std::runtime_error);
  EXPECT_TRUE(log.Contains("Error in opening the file [" + missing + "]."));
  const std::string array = TempPath("array.json");
  WriteText(array, "[]");
  EXPECT_THROW(named.FromFile(array), std::runtime_error);
  const std::string broken = TempPath("broken.json");
  WriteText(broken, "{\"value\": 1");
  EXPECT_THROW(named.FromFile(broken), std::runtime_error);
  EXPECT_TRUE(log.Contains("JSON parse error in the file [" + broken + "]"));
}

// Paths that name no readable or writable file: the message names the path and the reason.
TEST(Serializable, DirectoriesAndUnwritablePathsAreNamed) {
  Named named;
  LogCapture log;
  for (const char* name : {"dir.json", "dir.zvmod"}) {
    const std::string dir = TempPath(name);
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
    EXPECT_THROW(named.FromFile(dir), std::runtime_error);
    EXPECT_TRUE(log.Contains("Error in opening the file [" + dir + "]: is a directory.")) << dir;
    EXPECT_THROW(named.FromBin(dir, "fp32"), std::runtime_error);
    rmdir(dir.c_str());
  }
  const std::string nowhere = TempPath("no/such/dir/out.zvmod");
  EXPECT_THROW(named.ToBin(nowhere, "fp32"), std::runtime_error);
  EXPECT_THROW(named.ToFile(nowhere + ".json", "json"), std::runtime_error);
  EXPECT_TRUE(
      log.Contains("Error in opening the file [" + nowhere + "] for writing: No such file or directory."));
  EXPECT_TRUE(log.Contains("Error in opening the file [" + nowhere +
                           ".json] for writing: No such file or directory."));
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
