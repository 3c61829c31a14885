// Creating a project: the device table, the new project and welcome dialogs,
// and the path from the welcome dialog to live records.
#include "app/Settings.h"
#include "gui/CDeviceDataModel.h"
#include "gui/CDeviceSelectionDialog.h"
#include "gui/NewProjectDialog.h"
#include "gui/SymbolSelection.h"
#include "gui/SymbolTreeModel.h"
#include "gui/TIFSpeedComboBox.h"
#include "gui/WelcomeDialog.h"
#include "probe/ProbeSampler.h"
#include "tests/TempFolder.h"
#include "tests/gui/GuiTestSupport.h"
#include "view/UtilFilterHeader.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QGroupBox>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

using guitest::whenShown;

namespace {

std::vector<DeviceEntry> someDevices()
{
    auto e = [](const char* maker, const char* name, int cores, std::uint32_t flash) {
        DeviceEntry d;
        d.manufacturer = maker;
        d.name = name;
        d.cores = "Cortex-M4 Rev.1";
        d.numCores = cores;
        d.flashSize = flash;
        return d;
    };
    return {e("Nordic Semiconductor", "nRF52840", 1, 1 << 20), e("Unspecified", "Cortex-M4", 1, 0),
            e("Analog Devices", "MAX32630", 1, 2 << 20),    e("STMicroelectronics", "STM32H745ZI", 2, 2 << 20),
            e("Unspecified", "Cortex-M0", 1, 0),            e("STMicroelectronics", "STM32F407VG", 1, 1 << 20)};
}

QString cell(const CDeviceSelectionDialog& d, int row, int column)
{
    return d.proxy()->index(row, column).data().toString();
}

void typeSpeed(TIFSpeedComboBox* box, const char* khz)
{
    box->lineEdit()->clear();
    QTest::keyClicks(box->lineEdit(), khz);
    emit box->lineEdit()->editingFinished();
}

std::string contents(const fs::path& p)
{
    std::ostringstream s;
    s << std::ifstream(p, std::ios::binary).rdbuf();
    return s.str();
}

}  // namespace

// A typed speed joins the list on top once; empty falls back to 1000 kHz.
TEST(SpeedBox, ListedCustomEmptyAndTooLong)
{
    TIFSpeedComboBox box;
    const std::tuple<const char*, int, int> cases[] = {
        {"4000", 4000000, 33}, {"3500", 3500000, 34}, {"", 1000, 34}, {"3500", 3500000, 34}};
    for (const auto& [typed, hz, count] : cases) {
        box.lineEdit()->setFocus();
        typeSpeed(&box, typed);
        EXPECT_EQ(std::tuple(box.speedHz(), box.count()), std::tuple(hz, count)) << typed;
    }
    EXPECT_EQ(box.itemText(0), "3500");
    box.lineEdit()->clear();
    QTest::keyClicks(box.lineEdit(), "1234567");
    EXPECT_EQ(box.lineEdit()->text(), "12345");  // five digits, as many as 50000 has
}

TEST(DeviceSelection, UnspecifiedFirstInBothOrdersAndFilters)
{
    CDeviceSelectionDialog dialog(someDevices(), "STM32F407VG");
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    ASSERT_TRUE(dialog.selection());
    EXPECT_EQ(dialog.selection()->name, "STM32F407VG");
    // "Unspecified" stays on top whichever way the makers are sorted.
    const auto makers = [&] {
        QStringList out;
        for (int r = 0; r < dialog.proxy()->rowCount(); ++r)
            out << cell(dialog, r, 0);
        return out;
    };
    EXPECT_EQ(makers(), QStringList({"Unspecified", "Unspecified", "Analog Devices", "Nordic Semiconductor",
                                     "STMicroelectronics", "STMicroelectronics"}));
    dialog.table()->sortByColumn(0, Qt::DescendingOrder);
    EXPECT_EQ(makers(), QStringList({"Unspecified", "Unspecified", "STMicroelectronics", "STMicroelectronics",
                                     "Nordic Semiconductor", "Analog Devices"}));
    dialog.table()->sortByColumn(4, Qt::AscendingOrder);  // by number, not by text
    EXPECT_EQ(cell(dialog, 5, 4), "2 MB");
    EXPECT_EQ(cell(dialog, 0, 4), "0 Bytes");

    auto* filter = static_cast<QLineEdit*>(dialog.filterHeader()->editor(1));
    QTest::keyClicks(filter, "stm32");
    EXPECT_EQ(dialog.proxy()->rowCount(), 2);
    QTest::keyClick(filter, Qt::Key_Return);
    EXPECT_TRUE(dialog.isVisible());  // Enter in a filter does not close the dialog
    auto* cores = static_cast<QLineEdit*>(dialog.filterHeader()->editor(3));
    QTest::keyClicks(cores, "2");
    ASSERT_EQ(dialog.proxy()->rowCount(), 1);
    EXPECT_EQ(cell(dialog, 0, 1), "STM32H745ZI");
}

struct DialogTest : guitest::ControllerTest {
    StartArgs start;
    void SetUp() override
    {
        ctl->postInit(&start, {});
        ASSERT_TRUE(ctl->waitForQueue(10000));
    }
};

// What "OK" then writes: CliNewWritesWhatTheDialogAndSaveAsWrite.
TEST_F(DialogTest, NewProjectDialogWidgetsFollowTheChoices)
{
    NewProjectDialog d(*ctl);
    d.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&d));
    d.radioTcpIp()->setChecked(true);
    EXPECT_EQ(d.focusWidget(), d.hostEdit());  // the host is what the user types next
    d.radioQtx()->setChecked(true);
    EXPECT_FALSE(d.samplingRateGroup()->isVisible());
    d.radioExistingSession()->setChecked(true);
    EXPECT_TRUE(d.radioBsq()->isChecked());
    EXPECT_FALSE(d.radioQtx()->isEnabled());
    EXPECT_FALSE(d.hostEdit()->isVisible());
    d.radioUsb()->setChecked(true);
    EXPECT_TRUE(d.radioQtx()->isEnabled());
}

// Opened on a project's settings and left unedited, the dialog gives them back whole.
TEST_F(DialogTest, OptionsKeepTheRestOfTheSettings)
{
    ProjectSettings usb;
    usb.Connection = kConnectionUsb;
    usb.SerialNo = 123456;
    usb.ElfFile = "/fw/a.elf";
    usb.TargetInterface = kInterfaceJtag;
    usb.InterfaceSpeed = 3500;
    usb.SamplingPeriod = 250;
    usb.DataFile = "/d/x.csv";
    usb.TriggerLevel = 12.5;
    usb.TriggerOn = usb.TriggerRise = true;
    ProjectSettings ip = usb;
    ip.Connection = kConnectionTcpIp;
    ip.IP = "10.0.0.7";
    ip.IsQTXSession = true;
    ip.TargetInterface = kInterfaceFine;
    for (const ProjectSettings& s : {usb, ip})
        EXPECT_EQ(NewProjectDialog(*ctl, nullptr, s).payload(), s) << s.Connection;
}

// `plotvik-cli new` is the dialog's headless twin: with the same choices it
// writes the file that "OK" followed by Save As writes, byte for byte.
TEST_F(DialogTest, CliNewWritesWhatTheDialogAndSaveAsWrite)
{
    const fs::path bin = PLOTVIK_BIN_DIR;
    if (!fs::exists(bin / "plotvik-cli") || !fs::exists(bin / "demo.elf"))
        GTEST_SKIP() << "plotvik-cli or the demo firmware not built";
    const fs::path dir = testtemp::folder() / "twin";
    fs::create_directories(dir);
    const QString elf = QString::fromStdString((dir / "fw.elf").string());
    const QString script = QString::fromStdString((dir / "fw.TarvoScript").string());
    fs::copy_file(bin / "demo.elf", elf.toStdString(), fs::copy_options::overwrite_existing);
    std::ofstream(script.toStdString()) << "Fast = 1\n";
    // A QTX project connects and starts QTX once it is set up, so the dialog
    // runs on the real (simulated) probe as the command does.
    JobEngine probeEngine;
    Controller probeCtl(probeEngine, std::make_unique<ProbeSampler>());
    TestBridge probeBridge;
    probeCtl.setBridge(&probeBridge);

    struct Case {
        const char* name;
        std::function<void(NewProjectDialog&)> choose;
        QStringList args;
    };
    const Case cases[] = {
        {"ip-fine-bsq",
         [&](NewProjectDialog& d) {
             d.radioTcpIp()->setChecked(true);
             d.hostEdit()->setText("192.168.7.2");
             d.deviceEdit()->setText("KS40-512");
             d.scriptEdit()->setText(script);
             d.interfaceBox()->setCurrentIndex(2);
             typeSpeed(d.speedBox(), "3500");
             d.periodEdit()->setText("250");
             d.elfEdit()->setText(elf);
         },
         {"--ip", "192.168.7.2", "--device", "KS40-512", "--script", script, "--interface", "FINE", "--speed", "3500",
          "--bsq", "250", "--elf", elf}},
        {"usb-serial-qtx",
         [&](NewProjectDialog& d) {
             d.checkSerial()->setChecked(true);
             d.serialEdit()->setText("123456");
             d.deviceEdit()->setText("PVK-SIM-M4");
             d.interfaceBox()->setCurrentIndex(0);
             d.radioQtx()->setChecked(true);
         },
         {"--usb", "123456", "--device", "PVK-SIM-M4", "--interface", "JTAG", "--qtx"}},
    };
    for (const Case& c : cases) {
        const fs::path fromDialog = dir / (std::string(c.name) + "-dialog.plotvik");
        const fs::path fromCli = dir / (std::string(c.name) + "-cli.plotvik");
        NewProjectDialog d(probeCtl);
        c.choose(d);
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
        ASSERT_EQ(d.result(), QDialog::Accepted) << c.name;
        probeBridge.savePath = fromDialog.string();
        probeCtl.postSaveProjectAs();
        probeCtl.postReadStop();
        ASSERT_TRUE(probeCtl.waitForQueue(30000));
        ASSERT_TRUE(probeBridge.shown().empty()) << probeBridge.shown().front().text;

        QProcess cli;
        cli.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", QString::fromStdString(dir.string()));
        env.insert("XDG_CONFIG_HOME", QString::fromStdString(dir.string()));
        cli.setProcessEnvironment(env);
        cli.start(QString::fromStdString((bin / "plotvik-cli").string()),
                  QStringList{"new", QString::fromStdString(fromCli.string())} + c.args);
        ASSERT_TRUE(cli.waitForFinished(60000)) << c.name;
        ASSERT_EQ(cli.exitCode(), 0) << c.name << ": " << cli.readAll().toStdString();
        const std::string written = contents(fromDialog);
        EXPECT_FALSE(written.empty()) << c.name;
        EXPECT_EQ(contents(fromCli), written) << c.name;
    }
    probeEngine.stopAndWait([] {});
    probeCtl.setBridge(nullptr);
}

TEST_F(DialogTest, WelcomeWithEmptyListGoesToTheFileDialogAndRemembersTheStart)
{
    WelcomeDialog w(*ctl, {});
    EXPECT_FALSE(w.recentBox()->isEnabled());
    w.radioNew()->setChecked(true);
    EXPECT_FALSE(w.otherButton()->isEnabled());
    w.dontShowBox()->setChecked(true);
    ASSERT_TRUE(ctl->waitForQueue(10000));
    EXPECT_EQ(readStartAction(), 2);
    w.radioRecent()->setChecked(true);
    EXPECT_EQ(readStartAction(), 2);  // taken when ticked
    w.dontShowBox()->setChecked(false);
    ASSERT_TRUE(ctl->waitForQueue(10000));
    EXPECT_EQ(readStartAction(), 0);
    w.dontShowBox()->setChecked(true);
    ASSERT_TRUE(ctl->waitForQueue(10000));
    EXPECT_EQ(readStartAction(), 1);
    writeStartAction(1);

    bool asked = false;
    whenShown<QFileDialog>([&](QFileDialog* f) {
        asked = true;
        f->reject();
    });
    QTimer::singleShot(0, w.startButton(), [&] { QTest::mouseClick(w.startButton(), Qt::LeftButton); });
    EXPECT_EQ(w.exec(), WelcomeDialog::kCancelled);
    EXPECT_TRUE(asked);
}

// From an empty start to live records of the user's own firmware.
TEST(CreateProject, WelcomeToRecordsOnTheSimulatedTarget)
{
    const fs::path bin = PLOTVIK_BIN_DIR;
    if (!fs::exists(bin / "demo.elf") || !fs::exists(bin / "libTarvo_x64.so"))
        GTEST_SKIP() << "demo firmware or probe library not built";
    // The user's firmware lives in a folder of its own.
    const fs::path folder = testtemp::folder() / "create";
    fs::create_directories(folder);
    const fs::path elf = folder / "my_firmware.elf";
    fs::copy_file(bin / "demo.elf", elf, fs::copy_options::overwrite_existing);
    writeStartAction(0);
    JobEngine engine;
    auto ctl = std::make_unique<Controller>(engine, std::make_unique<ProbeSampler>());
    bool welcomed = false, chose = false;
    int ticked = 0;
    whenShown<WelcomeDialog>([&](WelcomeDialog* w) {
        welcomed = true;
        whenShown<NewProjectDialog>([&](NewProjectDialog* d) {
            whenShown<CDeviceSelectionDialog>([&](CDeviceSelectionDialog* s) {
                QTest::keyClicks(static_cast<QLineEdit*>(s->filterHeader()->editor(1)), "sim-m4");
                for (int r = 0; r < s->proxy()->rowCount(); ++r)
                    if (s->proxy()->index(r, 1).data().toString() == "PVK-SIM-M4")
                        s->table()->setCurrentIndex(s->proxy()->index(r, 1));
                chose = s->proxy()->rowCount() == 2;
                QTest::mouseClick(s->okButton(), Qt::LeftButton);
            });
            whenShown<SymbolSelection>([&](SymbolSelection* sel) {
                SymbolTreeModel* m = sel->model();
                for (Node* f : ctl->symbols().tree()->files)
                    for (Node* n = f->Children; n; n = n->Next)
                        if (n->Name == "g_tick_ms" || n->Name == "g_sawtooth") {
                            m->setExpanded(m->indexOf(f), true);
                            ticked += m->setData(m->indexOf(n, SymbolTreeModel::kColSelect), Qt::Checked,
                                                 Qt::CheckStateRole);
                        }
                QTest::mouseClick(sel->okButton(), Qt::LeftButton);
            });
            QTimer::singleShot(0, d, [d, elf] {
                QTest::mouseClick(d->deviceButton(), Qt::LeftButton);
                d->elfEdit()->setText(QString::fromStdString(elf.string()));
                d->periodEdit()->setText("1000");
                QTest::mouseClick(d->okButton(), Qt::LeftButton);
            });
        });
        w->radioNew()->setChecked(true);
        QTest::mouseClick(w->startButton(), Qt::LeftButton);
    });
    auto window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->symbols().selected().size() == 2; }, 60000));
    EXPECT_EQ(std::tuple(welcomed, chose, ticked, window->startArgs().startMode),
              std::tuple(true, true, 2, WelcomeDialog::kCreated));
    const ProjectSettings s = ctl->project().settings();
    EXPECT_EQ(std::tuple(s.TargetDevice, s.ElfFile, s.SamplingPeriod, ctl->project().isModified()),
              std::tuple("PVK-SIM-M4", elf.string(), 1000u, true));

    ctl->postStartReading();
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().recordCount() >= 20; }, 30000))
        << ctl->store().recordCount() << " records";
    ctl->postReadStop();
    ASSERT_TRUE(ctl->waitForQueue(10000));
    EXPECT_GT(ctl->store().timeStampAt(ctl->store().recordCount() - 1), ctl->store().timeStampAt(0));
    ctl->project().setModified(false);  // no question at exit
    window->QMainWindow::close();
    window.reset();
    ctl.reset();
    writeStartAction(1);
}
