#include "conf/file/ini_file.h"
#include "conf/mapper/conf_path_mapper.h"
#include "conf/store/conf_path.h"
#include "pipeline/input/driver/device_channel.h"
#include "pipeline/input/driver/driver_service.h"
#include "testbed/driver_service.h"
#include "testbed/handle_count.h"
#include "tests/support/captured_log.h"
#include "tests/support/function_thread.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"
#include "util/process/job_process.h"
#include "util/thread/event.h"

namespace velmox::e2e {

namespace {

using velmox::testing::FunctionThread;
using velmox::testing::ScopedFolder;

unsigned ownHandles()
{
    return testbed::handleCount(GetCurrentProcessId());
}

/// What lives long in the program, made, used and destroyed.
class HandleCounts : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { testbed::startDriverService(); }
    static void TearDownTestSuite() { testbed::removeDriverService(); }

    /// The first runs may leave what the system keeps for the process. It takes its time with what belonged
    /// to a thread or process that has ended.
    template <class Use>
    void expectNoneLeft(const char *what, Use use, int runs = 50)
    {
        SCOPED_TRACE(what);
        for (int run = 0; run < 5; ++run) {
            use();
        }
        const unsigned before = ownHandles();
        for (int run = 0; run < runs; ++run) {
            use();
        }
        unsigned after = ownHandles();
        for (int wait = 0; wait < 200 && after > before; ++wait) {
            Sleep(10);
            after = ownHandles();
        }
        EXPECT_LE(after, before);
    }

    static void runProcess()
    {
        JobProcess process;
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        ASSERT_TRUE(process.start(u"cmd.exe /c exit 3", 0, startup));
        ASSERT_EQ(WaitForSingleObject(process.handle(), 20'000), WAIT_OBJECT_0);
        process.end();
        EXPECT_EQ(process.exitStatus(), 3u);
    }

    static void useDevice()
    {
        DeviceChannel channel;
        ASSERT_TRUE(channel.open());
        unsigned char buffer[8192];
        DWORD bytes = 0;
        EXPECT_TRUE(channel.setFilter({}));
        EXPECT_TRUE(channel.read(buffer, sizeof buffer, bytes));
    }

    static void reinstallService()
    {
        const char16_t *name = chooseDriverName();
        const Pathname path = driverPath(name);
        ASSERT_TRUE(manageDriver(name, path.c_str(), kStopAndRemove));
        ASSERT_TRUE(manageDriver(name, path.c_str(), kInstallAndStart));
        useDevice();
    }
};

TEST_F(HandleCounts, ReturnToTheirStart)
{
    const unsigned before = ownHandles();
    {
        const Event seen;
        ASSERT_EQ(ownHandles(), before + 1);
    }
    expectNoneLeft("Thread", [] {
        FunctionThread thread([] {});
        thread.start();
    });
    expectNoneLeft("Thread that never starts", [] { const FunctionThread thread([] {}); });
    expectNoneLeft("Mutex and Event", [] {
        Mutex mutex;
        Event event;
        const MutexGuard guard(mutex);
        EXPECT_FALSE(event.waitFor(mutex, 1));
    });
    expectNoneLeft("JobProcess", runProcess);
    expectNoneLeft("DeviceChannel", useDevice);
    expectNoneLeft("driver service", reinstallService, 10);
}

TEST_F(HandleCounts, OfFilesOfSettingsReturnToTheirStart)
{
    const velmox::testing::CapturedLog log;
    const ScopedFolder root;
    const Pathname folder = root / "apps\\a\\local";
    const Pathname file = folder.join("inputs.conf");
    makeDirs(folder, true);
    velmox::testing::writeWhole(file, "[s]\nk = v\n");
    const BundlesSetup setup(root.path());

    expectNoneLeft("IniFile", [&] {
        IniFile image(file);
        image.stanza("t");
        EXPECT_TRUE(image.flush());
    });
    expectNoneLeft("ConfPathMapper", [&] {
        ConfPathMapper mapper({setup, folder, root / "apps\\a", "nobody", "a", {}, nullptr});
        ConfPathTrie content;
        EXPECT_TRUE(mapper.read(ConfPath(setup, ConfPathBase("nobody", "a", {"inputs"})), content,
                                ConfPathTrie::kAllLevels));
    });
}

} // namespace

} // namespace velmox::e2e
