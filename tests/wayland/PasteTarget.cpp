// zettly_test_paste_target FILE
//
// The application a paste has to reach: one text field in a Wayland window
// (app id "zettly-paste-target"), its text written to FILE on every change.
#include <QApplication>
#include <QFile>
#include <QLineEdit>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    QApplication::setDesktopFileName(QStringLiteral("zettly-paste-target"));
    const QString path = QString::fromLocal8Bit(argv[1]);
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("Paste target"));
    field.resize(400, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [&](const QString& text) {
        QFile out(path);
        if (out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            out.write(text.toUtf8());
    });
    field.show();
    return QApplication::exec();
}
