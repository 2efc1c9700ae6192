#include <gtest/gtest.h>

#include <QApplication>

// Tests that use widgets run inside one application object.
int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
