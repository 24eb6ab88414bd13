// A second process writing the store of the given data folder, as the command line does beside the app.
//   storewriter DIR            saves activities one transaction at a time, printing each uid after its
//                              commit, until it is killed (the crash test kills it at a random moment)
//   storewriter DIR add TEXT   saves one activity with this text, prints its uid and exits
#include <cstdio>

#include <QCoreApplication>

#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2 && !(argc == 4 && qstrcmp(argv[2], "add") == 0))
        return 2;
    StoreOptions options;
    options.applicationFilesDirectory = QString::fromLocal8Bit(argv[1]);
    auto store = Store::open(options);
    if (!store) {
        std::fprintf(stderr, "%s\n", qPrintable(store.error().message()));
        return 1;
    }
    auto context = (*store)->newContext();
    QDateTime from = QDateTime::currentDateTimeUtc();
    for (int i = 0;; ++i) {
        ActivityPtr activity = context->insertActivity();
        activity->setText(argc == 4 ? QString::fromLocal8Bit(argv[3])
                                    : QStringLiteral("@Project%1 #task%2 written %3").arg(i % 7).arg(i % 11).arg(i));
        activity->setTimeFrom(from);
        from = from.addSecs(60);
        activity->setTimeTo(from);
        if (auto saved = context->save(); !saved) {
            std::fprintf(stderr, "%s\n", qPrintable(saved.error().message()));
            return 1;
        }
        std::printf("%s\n", qPrintable(activity->uid()));
        std::fflush(stdout);
        if (argc == 4)
            return 0;
    }
}
