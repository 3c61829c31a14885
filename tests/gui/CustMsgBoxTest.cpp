// The count-down message box: titles while counting down, results of
// buttons, time-out and dismissal, the check box, icons and copying.
#include "gui/DIALOG_CustMsgBox.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>
#include <QTest>

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
    EXPECT_EQ(box.windowTitle(), caption);
    std::vector<QString> titles;
    int ticks = 0;
    while (box.result() == 1 && box.remainingMs() > 0 && ticks < 1000) {
        tick(box);
        ++ticks;
        if (titles.empty() || titles.back() != box.windowTitle())
            titles.push_back(box.windowTitle());
        if (box.remainingMs() == 990) {
            EXPECT_EQ(box.windowTitle(), caption + " (closing in 1 seconds)");
        }
        if (box.remainingMs() == 1000) {
            EXPECT_EQ(box.windowTitle(), caption + " (closing in 2 seconds)");
        }
        EXPECT_GE(box.minimumWidth(), box.fontMetrics().horizontalAdvance(box.windowTitle()) + 150);
    }
    const std::vector<QString> expected = {caption + " (closing in 3 seconds)", caption + " (closing in 2 seconds)",
                                           caption + " (closing in 1 seconds)", caption + " (closing now)"};
    EXPECT_EQ(titles, expected);
    EXPECT_EQ(ticks, 300);
    EXPECT_FALSE(box.dismissed());
    EXPECT_EQ(box.answer().result, 1);
}

TEST(CustMsgBox, TimeOutClosesTheShownBoxByItself)
{
    QElapsedTimer clock;
    clock.start();
    const MessageBoxAnswer a = DIALOG_CustMsgBox::run(request("A", "B", 150, 1));
    EXPECT_EQ(a.result, 1);
    EXPECT_GE(clock.elapsed(), 140);
    EXPECT_LT(clock.elapsed(), 5000);
}

TEST(CustMsgBox, WithoutButtonsAndTimeOutOnlyDismissalCloses)
{
    DIALOG_CustMsgBox box(request("", "", 0, 0));
    EXPECT_EQ(box.findChildren<QPushButton*>().size(), 0);
    box.open();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    QTest::qWait(60);  // no timer may close it
    EXPECT_TRUE(box.isVisible());
    EXPECT_EQ(box.windowTitle(), "Plotvik V1.00a Warning");
    QTest::keyClick(&box, Qt::Key_Return);  // no default button to press
    EXPECT_TRUE(box.isVisible());
    QTest::keyClick(&box, Qt::Key_Escape);
    EXPECT_FALSE(box.isVisible());
    EXPECT_TRUE(box.dismissed());
    EXPECT_EQ(box.answer().result, -7);
}

TEST(CustMsgBox, WindowCloseButtonDismisses)
{
    DIALOG_CustMsgBox box(request("O.K.", "", 0, 0));
    box.open();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    box.close();
    EXPECT_TRUE(box.dismissed());
    EXPECT_EQ(box.answer().result, -7);
}

TEST(CustMsgBox, ButtonsGiveTheirIndexEvenBeforeTimeOut)
{
    for (int index : {0, 1}) {
        DIALOG_CustMsgBox box(request("Yes", "No", 5000, index == 0 ? 1 : 0));
        ASSERT_NE(box.button(index), nullptr);
        box.open();
        tick(box);
        QTest::mouseClick(box.button(index), Qt::LeftButton);
        EXPECT_FALSE(box.isVisible());
        EXPECT_FALSE(box.dismissed());
        EXPECT_EQ(box.answer().result, index);
        // The count-down stopped with the box.
        const int left = box.remainingMs();
        QTest::qWait(40);
        EXPECT_EQ(box.remainingMs(), left);
    }
}

TEST(CustMsgBox, ButtonsSitInOneRowInOrder)
{
    DIALOG_CustMsgBox box(request("Yes", "No", 0));
    box.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&box));
    EXPECT_EQ(box.button(0)->text(), "Yes");
    EXPECT_EQ(box.button(1)->text(), "No");
    EXPECT_EQ(box.button(0)->y(), box.button(1)->y());
    DIALOG_CustMsgBox ampersand(request("Reparse & Match symbols", "Reparse & Clear symbols", 0));
    EXPECT_EQ(ampersand.button(0)->text(), "Reparse && Match symbols") << "an & is shown, not taken as a mnemonic";
    EXPECT_LT(box.button(0)->x(), box.button(1)->x());
    EXPECT_GT(box.button(0)->y(), box.textLabel()->y());
    box.reject();
}

TEST(CustMsgBox, CheckBoxStateIsHandedBack)
{
    MessageBoxRequest r = request("OK", "", 0);
    r.checkText = "Don't show again";
    r.checkState = 0;
    DIALOG_CustMsgBox box(r);
    ASSERT_NE(box.checkBox(), nullptr);
    EXPECT_EQ(box.checkBox()->text(), "Don't show again");
    EXPECT_FALSE(box.checkBox()->isChecked());
    box.open();
    box.checkBox()->setChecked(true);
    QTest::mouseClick(box.button(0), Qt::LeftButton);
    EXPECT_EQ(box.answer().checkState, 1);
    EXPECT_EQ(box.answer().result, 0);

    r.checkState = 1;
    DIALOG_CustMsgBox dismissed(r);
    EXPECT_TRUE(dismissed.checkBox()->isChecked());
    dismissed.open();
    dismissed.checkBox()->setChecked(false);
    dismissed.reject();
    EXPECT_EQ(dismissed.answer().checkState, 0);

    DIALOG_CustMsgBox none(request("OK", "", 0));
    EXPECT_EQ(none.checkBox(), nullptr);
}

TEST(CustMsgBox, IconKinds)
{
    for (int kind : {kIconCritical, kIconQuestion, kIconWarning, kIconInformation}) {
        MessageBoxRequest r = request("OK", "", 0);
        r.icon = kind;
        DIALOG_CustMsgBox box(r);
        ASSERT_NE(box.iconLabel(), nullptr) << kind;
        EXPECT_FALSE(box.iconLabel()->pixmap().isNull()) << kind;
        EXPECT_LE(box.iconLabel()->pixmap().deviceIndependentSize().width(), 64) << kind;
    }
    for (int kind : {0, 1, 255, 2048}) {
        MessageBoxRequest r = request("OK", "", 0);
        r.icon = kind;
        DIALOG_CustMsgBox box(r);
        EXPECT_EQ(box.iconLabel(), nullptr) << kind;
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
    box.reject();
}

TEST(CustMsgBox, LongTextIsCutToTheWorkBufferAndCopyToItsLimit)
{
    MessageBoxRequest r = request("OK", "", 0);
    r.text = std::string(40000, 'x');
    DIALOG_CustMsgBox box(r);
    EXPECT_EQ(box.textLabel()->text().size(), 32767);
    EXPECT_EQ(box.copyText().size(), 2048);
}

}  // namespace
