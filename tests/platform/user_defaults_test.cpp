#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

const QString kKey = QStringLiteral("kUsername");

void write(const QString &file, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(file).path());
    QFile writing(file);
    ASSERT_TRUE(writing.open(QIODevice::WriteOnly));
    writing.write(bytes);
}

TEST(UserDefaultsTest, SetsADamagedFileAside) {
    const QString file = UserDefaults().fileName();
    const QByteArray damaged[] = {QByteArray("[General]\nkUser\0name=ann\n", 25),
                                  "[General]\nkUsername=ann\nkPas", "[Gen", "\x89PNG\r\n"};
    int number = 0;
    for (const QByteArray &bytes : damaged) {
        write(file, bytes);
        UserDefaults defaults;
        const QString aside = file + QStringLiteral(".damaged-%1").arg(++number);
        EXPECT_TRUE(defaults.problem().contains(aside)) << qPrintable(defaults.problem());
        QFile kept(aside);
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
        EXPECT_EQ(kept.readAll(), bytes);
        EXPECT_FALSE(defaults.objectForKey(kKey).has_value());
        defaults.setObject(QStringLiteral("bob"), kKey);
        EXPECT_TRUE(defaults.synchronize());
    }
    EXPECT_EQ(UserDefaults().objectForKey(kKey), QStringLiteral("bob"));
}

TEST(UserDefaultsTest, TakesWhatItWritesItselfForSound) {
    const QString texts[] = {u""_qs, u"a,b"_qs, u"=[;"_qs, u"  "_qs, u"grün\n[x\ny\0z"_qs, u"\"\\\x1f"_qs};
    for (const QString &text : texts) {
        {
            UserDefaults defaults;
            defaults.setObject(text, kKey);
            ASSERT_TRUE(defaults.synchronize());
        }
        UserDefaults again;
        EXPECT_TRUE(again.problem().isEmpty()) << qPrintable(again.problem());
        EXPECT_EQ(again.objectForKey(kKey), text);
    }
    EXPECT_FALSE(UserDefaults::isDamaged("; a comment\r\n# another\r\n[General]\r\nkAutoLogin=Yes\r\n\r\n"));
}

}  // namespace
