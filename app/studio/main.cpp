#include "MessageLogger.h"
#include "StudioMainWindow.h"

#include <QApplication>
#include <QCommandLineParser>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("PtCloud"));
    QCoreApplication::setApplicationName(QStringLiteral("PtCloud Studio"));
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication app(argc, argv);
    MessageLogger::install();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Point-cloud editor studio"));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("LAS file or project folder to open"),
                                 QStringLiteral("[file]"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Save a picture of the window to <png> and exit."),
                                        QStringLiteral("png"));
    parser.addOption(screenshot);
    const QCommandLineOption tool(QStringLiteral("tool"),
                                  QStringLiteral("Open a tool panel (section, volume) on the shown dataset."),
                                  QStringLiteral("name"));
    parser.addOption(tool);
    parser.process(app);
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1) {
        std::fprintf(stderr, "ptcloud-studio: at most one file or folder\n");
        return 2;
    }

    StudioMainWindow window;
    QString openError;
    if (!positional.isEmpty() && !window.openSource(positional.first(), &openError)) {
        std::fprintf(stderr, "ptcloud-studio: %s\n", qPrintable(openError));
        if (parser.isSet(screenshot)) return 1;
    }
    if (parser.isSet(tool)) {
        window.show();
        if (!window.openTool(parser.value(tool))) {
            std::fprintf(stderr, "ptcloud-studio: no tool %s\n", qPrintable(parser.value(tool)));
            return 2;
        }
    }
    if (parser.isSet(screenshot)) {
        QString error;
        if (!window.saveScreenshot(parser.value(screenshot), &error)) {
            std::fprintf(stderr, "ptcloud-studio: %s\n", qPrintable(error));
            return 1;
        }
        return 0;
    }
    window.show();
    if (!openError.isEmpty())
        window.reportError(QObject::tr("Cannot open %1").arg(positional.first()), openError);
    return app.exec();
}
