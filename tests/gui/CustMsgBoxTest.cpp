// The count-down message box on its own; its time-out when run: MainWindowTest.
#include "gui/DIALOG_CustMsgBox.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <tuple>

#include <gtest/gtest.h>

namespace {

MessageBoxRequest request(const std::string& b0, const std::string& b1, int timeoutMs, int defaultResult = 0)
{
    MessageBoxRequest r;
    r.caption = "Plotvik V1.00a Warning";
    r.text = "Something to say";
    r.button0 = b0;
    r.button1 = b1;
    r.timeoutMs = timeoutMs;
    r.defaultResult = defaultResult;
    r.dismissedValue = -7;
    r.icon = kIconWarning;
    return r;
}

void tick(DIALOG_CustMsgBox& box) { ASSERT_TRUE(QMetaObject::invokeMethod(&box, "_SlotOnTimer")); }

TEST(CustMsgBox, CountDownTitlesThenDefaultResult)
{
    DIALOG_CustMsgBox box(request("Yes", "No", 3000, 1));
    const QString caption = "Plotvik V1.00a Warning";
    std::vector<QString> titles;
    int ticks = 0;
    while (box.result() == 1 && box.remainingMs() > 0 && ticks < 1000) {
        tick(box);
        ++ticks;
        if (titles.empty() || titles.back() != box.windowTitle())
            titles.push_back(box.windowTitle());
        // Whole seconds round up, the one below down.
        EXPECT_TRUE(box.remainingMs() != 1000 || box.windowTitle() == caption + " (closing in 2 seconds)");
    }
    const std::vector<QString> expected = {caption + " (closing in 3 seconds)", caption + " (closing in 2 seconds)",
                                           caption + " (closing in 1 seconds)", caption + " (closing now)"};
    EXPECT_EQ(std::tuple(titles, ticks, box.dismissed(), box.answer().result), std::tuple(expected, 300, false, 1));
}

TEST(CustMsgBox, WithoutButtonsAndTimeOutOnlyDismissalCloses)
{
    DIALOG_CustMsgBox box(request("", "", 0, 0));
    EXPECT_EQ(box.findChildren<QPushButton*>().size(), 0);
    box.open();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    QTest::qWait(60);  // no timer may close it
    QTest::keyClick(&box, Qt::Key_Return);  // nor a default button
    EXPECT_TRUE(box.isVisible());
    QTest::keyClick(&box, Qt::Key_Escape);
    EXPECT_EQ(std::tuple(box.isVisible(), box.dismissed(), box.answer().result), std::tuple(false, true, -7));
    // So does the window's close button.
    DIALOG_CustMsgBox ok(request("O.K.", "", 0, 0));
    ok.open();
    ok.close();
    EXPECT_EQ(std::tuple(ok.dismissed(), ok.answer().result), std::tuple(true, -7));
}

TEST(CustMsgBox, ButtonsGiveTheirIndexEvenBeforeTimeOut)
{
    for (int index : {0, 1}) {
        DIALOG_CustMsgBox box(request("Yes", "No", 5000, index == 0 ? 1 : 0));
        box.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
        tick(box);
        QTest::mouseClick(box.button(index), Qt::LeftButton);
        EXPECT_EQ(std::tuple(box.isVisible(), box.dismissed(), box.answer().result), std::tuple(false, false, index));
        // The count-down stopped with the box.
        const int left = box.remainingMs();
        QTest::qWait(40);
        EXPECT_EQ(box.remainingMs(), left);
    }
    DIALOG_CustMsgBox ampersand(request("Reparse & Match symbols", "Reparse & Clear symbols", 0));
    EXPECT_EQ(ampersand.button(0)->text(), "Reparse && Match symbols") << "an & is shown, not taken as a mnemonic";
}

TEST(CustMsgBox, CheckBoxStateIsHandedBack)
{
    MessageBoxRequest r = request("OK", "", 0);
    r.checkText = "Don't show again";
    for (const int state : {0, 1}) {
        r.checkState = state;
        DIALOG_CustMsgBox box(r);
        ASSERT_NE(box.checkBox(), nullptr);
        EXPECT_EQ(box.checkBox()->isChecked(), state == 1);
        box.open();
        box.checkBox()->setChecked(state == 0);
        state == 0 ? QTest::mouseClick(box.button(0), Qt::LeftButton) : box.reject();  // answered or dismissed
        EXPECT_EQ(box.answer().checkState, 1 - state);
    }
}

TEST(CustMsgBox, CtrlCCopiesTheBoxAsText)
{
    DIALOG_CustMsgBox box(request("Yes", "No", 0));
    box.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    QApplication::clipboard()->clear();
    QTest::keyClick(&box, Qt::Key_C, Qt::ControlModifier);
    const QString rule = "---------------------------\r\n";
    EXPECT_EQ(QApplication::clipboard()->text(), rule + "Plotvik V1.00a Warning\r\n" + rule + "Something to say\r\n" +
                                                     rule + "Yes   No   \r\n" + rule);
}

TEST(CustMsgBox, LongTextIsCutToTheWorkBufferAndCopyToItsLimit)
{
    MessageBoxRequest r = request("OK", "", 0);
    r.text = std::string(40000, 'x');
    DIALOG_CustMsgBox box(r);
    EXPECT_EQ(std::tuple(box.textLabel()->text().size(), box.copyText().size()), std::tuple(32767, 2048));
}

}  // namespace
