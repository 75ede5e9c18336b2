#include "zelva/src/runtime/serialization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "serialization_test_util.h"
#include "support/log_capture.h"

namespace zelva {
namespace runtime {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using testing_objects::TempPath;

class Named : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(value, "value");
  }
  int32_t value = 0;
};

TEST(Serializable, FromFileDispatchesByExtension) {
  Named source, read;
  for (const char* extension : {".json", ".zvmod", ".zvcfg", ".zvmods", ".zvcfgs"}) {
    SCOPED_TRACE(extension);
    const std::string path = TempPath(std::string("model") + extension);
    source.value = static_cast<int32_t>(path.size());
    source.ToFile(path, extension == std::string(".json") ? "json" : "bin");
    read.FromFile(path);
    EXPECT_EQ(read.value, source.value);
    EXPECT_EQ(read.serializable_type, "Named");
  }
  // Binary content behind a JSON name goes to the JSON reader, and fails there.
  const std::string wrong = TempPath("binary.json");
  source.ToFile(wrong, "bin");
  EXPECT_THROW(read.FromFile(wrong), std::runtime_error);

  zvtest::LogCapture log;
  EXPECT_THROW(read.FromFile("/tmp/model.txt"), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr("Unknow nets file type, file path: /tmp/model.txt."));
  EXPECT_THROW(read.FromFile("model.JSON"), std::runtime_error);
  // Too short for one of the endings tested: an out-of-range position, not a mismatch.
  for (const char* path : {"", "m.js", "a.bin", "ab.bin"}) {
    SCOPED_TRACE(path);
    try {
      read.FromFile(path);
      ADD_FAILURE() << "no failure";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid string position");
    }
  }
  // A 6-character ".zvmod" path matches before the 7-character test is reached.
  EXPECT_THROW(read.FromFile(".zvmod"), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr("cant construct FILEReader object using a NULL ptr."));
}

TEST(Serializable, UnknownWordsAreLoggedAndChangeNothing) {
  const std::string path = TempPath("named.json");
  Named named;
  named.value = 3;
  named.ToFile(path, "json");
  named.value = 4;
  zvtest::LogCapture log;
  named.FromFile(path, "xml");
  EXPECT_THAT(log.Last(), HasSubstr("Unknow file type, file path: " + path + "."));
  named.FromBin(path, "int8");
  EXPECT_THAT(log.Last(), HasSubstr("Unknow precision type: int8, try fp16 or fp32"));
  EXPECT_EQ(named.value, 4);

  const std::string never = TempPath("never.zvmod");
  named.ToFile(never, "yaml");
  named.ToBin(never, "fp64");
  EXPECT_THAT(log.Last(), HasSubstr("Unknow precision type: fp64, try fp16 or fp32"));
  EXPECT_EQ(access(never.c_str(), F_OK), -1);
}

// Paths that name no readable or writable file: the message names the path and the reason.
TEST(Serializable, UnreadableAndUnwritablePathsAreNamed) {
  Named named;
  zvtest::LogCapture log;
  const std::string missing = TempPath("missing.json");
  EXPECT_THROW(named.FromFile(missing), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr("Error in opening the file [" + missing + "]."));
  const std::string broken = TempPath("broken.json");
  testing_objects::WriteText(broken, "{\"value\": 1");
  EXPECT_THROW(named.FromFile(broken), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr("JSON parse error in the file [" + broken + "]"));
  for (const char* name : {"dir.json", "dir.zvmod"}) {
    const std::string dir = TempPath(name);
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
    EXPECT_THROW(named.FromFile(dir), std::runtime_error);
    EXPECT_THAT(log.Last(), HasSubstr("Error in opening the file [" + dir + "]: is a directory."));
    EXPECT_THROW(named.FromBin(dir, "fp32"), std::runtime_error);
    rmdir(dir.c_str());
  }
  const std::string nowhere = TempPath("no/such/dir/out.zvmod");
  EXPECT_THROW(named.ToBin(nowhere, "fp32"), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr("Error in opening the file [" + nowhere +
                                    "] for writing: No such file or directory."));
  EXPECT_THROW(named.ToFile(nowhere + ".json", "json"), std::runtime_error);
  EXPECT_THAT(log.Last(), HasSubstr(".json] for writing: No such file or directory."));
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
