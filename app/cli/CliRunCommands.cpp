#include "CliRunCommands.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <atomic>
#include <cmath>
#include <csignal>
#include <memory>
#include <vector>

#include "CliConsole.h"
#include "CliProgressBar.h"
#include "CliProjectCommands.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"

using namespace ptCloud;

namespace {

enum class Kind { Mesh, Dem, Split, Sample };
enum class Type { Bool, Int, UInt, Double };

// One entry of a dialog's positional list: the type the dialog puts in the
// list, the value it starts with and the range its widget allows.
struct Entry {
    const char* label;
    Type type;
    double initial;
    double minimum;
    double maximum;
};

struct Function {
    int code;
    const char* name;
    Kind kind;
    std::vector<Entry> entries;
};

const Entry kFastNormal{"fast normal", Type::Bool, 1, 0, 1};
const Entry kMaxIteration{"max iteration", Type::Int, 10, 1, 100};
const Entry kClusterNumber{"cluster number", Type::Int, 100, 1, 10000000};

const std::vector<Function>& functions()
{
    static const std::vector<Function> table = {
        {0, "Alpha", Kind::Mesh, {kFastNormal, {"alpha", Type::Double, 1.0, 0.0001, 100.0}}},
        {1, "Ball Pivoting", Kind::Mesh, {kFastNormal, {"radius", Type::Double, 0.6, 0.0001, 100.0}}},
        {2, "Poisson", Kind::Mesh,
         {kFastNormal, {"depth", Type::UInt, 8, 1, 16}, {"width", Type::Double, 0.12, 0.0001, 1000.0},
          {"density divide", Type::Double, 1.0, 1.0, 100.0}}},
        // The studio always asks for these two; here they may be chosen. The
        // four paths of the action's list are the dataset's own.
        {3, "DEM", Kind::Dem,
         {{"height map pixels", Type::Int, 1920, 16, 16384}, {"contour levels", Type::Int, 50, 1, 1000}}},
        {100, "DbScan", Kind::Split,
         {{"epsilon", Type::Double, 0.2, 0.0001, 100.0}, {"min pts", Type::Int, 45, 5, 10000000},
          {"retain noise", Type::Bool, 1, 0, 1}}},
        {101, "KMeans", Kind::Split, {kMaxIteration, kClusterNumber}},
        {102, "KMeans Extra", Kind::Split, {kMaxIteration, kClusterNumber}},
        {103, "Euclidean", Kind::Split,
         {{"tolerance", Type::Double, 0.1, 0.0001, 100.0}, {"min cluster", Type::Int, 20, 1, 10000000},
          {"max cluster", Type::Int, 1000000, 1, 10000000}}},
        {104, "Euclidean Fast", Kind::Split,
         {{"distance threshold", Type::Double, 0.2, 0.0001, 100.0}, {"max size", Type::Int, 50, 5, 10000}}},
        {105, "Region Growing", Kind::Split,
         {{"tolerance", Type::Int, 20, 1, 10000}, {"smooth", Type::Double, 10.0, 0.0, 99.99},
          {"cure", Type::Double, 1.0, 0.0, 99.99}, {"min cluster", Type::Int, 50, 5, 10000},
          {"max cluster", Type::Int, 1000000, 10, 10000000}}},
        {106, "Patchwork++", Kind::Split, {}},
        {107, "CSF", Kind::Split,
         {{"slope smoothing", Type::Bool, 1, 0, 1}, {"class threshold", Type::Double, 0.5, 0.0001, 10000.0},
          {"cloth resolution", Type::Double, 0.5, 0.0001, 100.0}, {"iterations", Type::Int, 500, 5, 10000},
          {"rigidness", Type::Int, 3, 1, 100}, {"time step", Type::Double, 0.65, 0.01, 100.0},
          {"remove ground", Type::Bool, 1, 0, 1}}},
        {200, "Poisson Disk", Kind::Sample,
         {{"target share", Type::Double, 1.0, 0.01, 1.0}, {"init factor", Type::Double, 5.0, 1.0, 100.0},
          {"make mesh alpha", Type::Double, 0.1, 0.0001, 100.0}}},
    };
    return table;
}

const Function* findFunction(int code)
{
    for (const Function& f : functions())
        if (f.code == code) return &f;
    return nullptr;
}

QString number(double v) { return QString::number(v, 'g', 10); }

QString describe(const Entry& e)
{
    switch (e.type) {
    case Type::Bool:
        return QStringLiteral("%1 (true or false)").arg(e.label);
    case Type::Double:
        return QStringLiteral("%1 (a number from %2 to %3)").arg(e.label, number(e.minimum), number(e.maximum));
    default:
        return QStringLiteral("%1 (a whole number from %2 to %3)").arg(e.label, number(e.minimum), number(e.maximum));
    }
}

QVariant typed(const Entry& e, double v)
{
    switch (e.type) {
    case Type::Bool:
        return QVariant(v != 0.0);
    case Type::Int:
        return QVariant(int(v));
    case Type::UInt:
        return QVariant(uint(v));
    default:
        return QVariant(v);
    }
}

// The value as the dialog would have put it in the list; false when the
// dialog's widget could not have held it.
bool convert(const Entry& e, const QJsonValue& v, QVariant* out)
{
    if (e.type == Type::Bool) {
        if (!v.isBool()) return false;
        *out = QVariant(v.toBool());
        return true;
    }
    if (!v.isDouble()) return false;
    const double x = v.toDouble();
    if (!(x >= e.minimum && x <= e.maximum)) return false;
    if (e.type != Type::Double && std::floor(x) != x) return false;
    *out = typed(e, x);
    return true;
}

QString jsonText(const QJsonValue& v)
{
    const QByteArray list = QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

// --params as the positional list of the function's dialog; absent, the
// dialog's initial values. A code of no function keeps whatever list it got:
// the runner does nothing with it.
bool readParams(const Function* f, const CliArguments& args, QVariantList* out, QString* error)
{
    QJsonArray given;
    if (args.has("--params")) {
        QJsonParseError parse;
        const QJsonDocument doc = QJsonDocument::fromJson(args.value("--params").toUtf8(), &parse);
        if (!doc.isArray()) {
            *error = QStringLiteral("--params wants a JSON list such as [0.2, 45, true]%1")
                         .arg(parse.error == QJsonParseError::NoError ? QString()
                                                                      : QStringLiteral(": ") + parse.errorString());
            return false;
        }
        given = doc.array();
    }
    out->clear();
    if (!f) {
        *out = given.toVariantList();
        return true;
    }
    if (!args.has("--params")) {
        for (const Entry& e : f->entries) *out << typed(e, e.initial);
        return true;
    }
    if (given.size() != int(f->entries.size())) {
        QStringList entries;
        for (const Entry& e : f->entries) entries << describe(e);
        *error = QStringLiteral("code %1 (%2) takes %3 entries%4%5, not %6")
                     .arg(f->code).arg(f->name).arg(f->entries.size())
                     .arg(entries.isEmpty() ? QString() : QStringLiteral(": "), entries.join(QStringLiteral(", ")))
                     .arg(given.size());
        return false;
    }
    for (int i = 0; i < given.size(); ++i) {
        const Entry& e = f->entries[size_t(i)];
        QVariant v;
        if (!convert(e, given[i], &v)) {
            *error = QStringLiteral("--params entry %1 is %2, not %3").arg(i + 1).arg(describe(e), jsonText(given[i]));
            return false;
        }
        *out << v;
    }
    return true;
}

// The one sink Ctrl-C stops. Its requestStop is a lock-free atomic store,
// which a signal handler may do.
std::atomic<ILongLiveActionProgress*> g_interruptSink{nullptr};
static_assert(std::atomic<ILongLiveActionProgress*>::is_always_lock_free, "the handler reads the sink lock-free");

void onInterrupt(int)
{
    if (ILongLiveActionProgress* sink = g_interruptSink.load()) sink->requestStop();
}

template <class Record, class Operation>
EEPtCloudActResult call(PtCloud_Controller* controller, Operation operation, const stControlParam_DataSet_Do& p,
                        ILongLiveActionProgress* progress)
{
    Record record;
    static_cast<stControlParam_DataSet_Do&>(record) = p;
    return (controller->*operation)(record, progress);
}

// The studio runner's dispatch: each range of codes to its operation, any
// other code runs nothing and reports that the function cannot execute.
EEPtCloudActResult dispatch(PtCloud_Controller* controller, const stControlParam_DataSet_Do& p,
                            ILongLiveActionProgress* progress)
{
    if (p.func >= 0 && p.func <= 3)
        return call<stControlParam_DataSet_Do_Mesh>(controller, &PtCloud_Controller::doCmd_DataSet_Do_Mesh, p,
                                                    progress);
    if (p.func >= 100 && p.func <= 107)
        return call<stControlParam_DataSet_Do_Split>(controller, &PtCloud_Controller::doCmd_DataSet_Do_Split, p,
                                                     progress);
    if (p.func == 200)
        return call<stControlParam_DataSet_Do_Sample>(controller, &PtCloud_Controller::doCmd_DataSet_Do_Sample, p,
                                                      progress);
    return PCAR_CannotExecute;
}

// The studio runner's words where it has them, so that scripts and users
// see the same reasons in both.
QString resultText(EEPtCloudActResult result)
{
    static const QMap<int, QString> texts{
        {PCAR_InvalidParameter, QStringLiteral("invalid parameters")},
        {PCAR_FileError, QStringLiteral("file error")},
        {PCAR_NotFound, QStringLiteral("not found")},
        {PCAR_AlreadyExists, QStringLiteral("already exists")},
        {PCAR_InvalidDataSet, QStringLiteral("invalid datset")},
        {PCAR_Cancelled, QStringLiteral("cancelled")},
        {PCAR_CannotExecute, QStringLiteral("function can not execute")},
        {PCAR_ExecuteFailed, QStringLiteral("function execute failed")},
        {PCAR_Crashed, QStringLiteral("function execute crashed")},
        {PCAR_CrashedAndClose, QStringLiteral("function execute crashed")},
    };
    return texts.value(int(result), QStringLiteral("unknown error"));
}

// What one run works on.
struct Job {
    PtCloud_Controller* controller = nullptr;
    PtCloudDataSet* dataSet = nullptr;
    const Function* function = nullptr;
    int code = 0;
    QVariantList params;

    QString title() const
    {
        return function ? QString::fromLatin1(function->name) : QStringLiteral("code %1").arg(code);
    }
};

// Runs the action with a progress bar, Ctrl-C asking it to stop. On failure
// the controller forgets what the action left and *reason says why.
EEPtCloudActResult execute(const Job& job, const QString& target, QString* reason)
{
    stControlParam_DataSet_Do p;
    p.dataSetName = job.dataSet->getName();
    p.targetName = target;
    p.func = job.code;
    p.params = job.params;
    CliProgressBar bar(job.title());
    g_interruptSink = bar.sink();
    struct sigaction interrupt = {}, previous = {};
    interrupt.sa_handler = onInterrupt;
    sigemptyset(&interrupt.sa_mask);
    interrupt.sa_flags = SA_RESETHAND;  // a second Ctrl-C ends the process at once
    sigaction(SIGINT, &interrupt, &previous);
    const EEPtCloudActResult result = dispatch(job.controller, p, bar.sink());
    sigaction(SIGINT, &previous, nullptr);
    g_interruptSink = nullptr;
    if (result == PCAR_Success) return result;
    job.controller->reset();
    *reason = QStringLiteral("%1: %2 (result %3)").arg(job.title(), resultText(result)).arg(int(result));
    const QString detail = bar.sink()->progressText();
    if ((result == PCAR_ExecuteFailed || result == PCAR_InvalidDataSet) && !detail.isEmpty())
        *reason += QStringLiteral(": ") + detail;
    return result;
}

void printSuccess(const QString& kind, const QString& name)
{
    CliConsole::out(QStringLiteral("result: %1").arg(int(PCAR_Success)));
    CliConsole::out(QStringLiteral("%1: %2").arg(kind, name));
}

bool taken(const QString& name, const QMap<QString, PtCloud_DataSetFile*>& existing)
{
    for (auto it = existing.cbegin(); it != existing.cend(); ++it)
        if (it.key().compare(name, Qt::CaseInsensitive) == 0) return true;
    return false;
}

// "<function> <n>" with the first n that no content of the kind has.
QString defaultName(const Function& f, const QMap<QString, PtCloud_DataSetFile*>& existing)
{
    for (int n = 1;; ++n) {
        const QString name = QStringLiteral("%1 %2").arg(f.name).arg(n);
        if (!taken(name, existing)) return name;
    }
}

// A split or a mesh: a named content made beside the dataset and added once
// the action has filled it. An existing content of the name is kept: the
// studio would replace it, the command line refuses.
int runNamed(const Job& job, const QString& wanted)
{
    PtCloudDataSet* ds = job.dataSet;
    const bool split = job.function->kind == Kind::Split;
    const QString kind = split ? QStringLiteral("split") : QStringLiteral("mesh");
    const QMap<QString, PtCloud_DataSetFile*>& existing = split ? *ds->getContent_Splits() : *ds->getContent_Meshs();
    const QString name = wanted.isEmpty() ? defaultName(*job.function, existing) : wanted;
    if (taken(name, existing))
        return CliConsole::fail(QStringLiteral("dataset %1 already has a %2 \"%3\"").arg(ds->getName(), kind, name));
    std::unique_ptr<PtCloud_DataSetFile> file(split ? ds->createEmptyLocatedContent_Split(name)
                                                    : ds->createEmptyLocatedContent_Mesh(name));
    QString reason;
    if (execute(job, file->getFilepath(), &reason) != PCAR_Success) return CliConsole::fail(reason);
    PtCloud_DataSetFile* adopted = file.release();
    if (!(split ? ds->addContent_Split(name, adopted) : ds->addContent_Mesh(name, adopted))) {
        delete adopted;
        return CliConsole::fail(QStringLiteral("the %1 \"%2\" could not be added to %3: %4")
                                    .arg(kind, name, ds->getName(), ds->lastError()));
    }
    printSuccess(kind, name);
    return 0;
}

// Thinning: the result replaces the dataset's points.
int runSample(const Job& job)
{
    PtCloudDataSet* ds = job.dataSet;
    QString reason;
    if (execute(job, ds->createEmptyLocatedContent_Points(), &reason) != PCAR_Success)
        return CliConsole::fail(reason);
    if (!ds->updateContent_Points()) {
        job.controller->reset();
        return CliConsole::fail(QStringLiteral("the thinned points could not replace those of %1").arg(ds->getName()));
    }
    printSuccess(QStringLiteral("points"), ds->getName());
    return 0;
}

// DEM: the new products replace the old ones at the dataset's fixed paths
// only when all are written; each is then adopted.
int runDem(Job job)
{
    PtCloudDataSet* ds = job.dataSet;
    job.params = {ds->getFilePath_Dem_Mesh(), ds->getFilePath_Dem_HeightMap(), job.params.value(0),
                  ds->getFilePath_Dem_Contour(), job.params.value(1), ds->getFilePath_Dem_Classify()};
    QString reason;
    if (execute(job, QString(), &reason) != PCAR_Success) return CliConsole::fail(reason);
    struct Product {
        const char* label;
        QString path;
        bool (PtCloudDataSet::*adopt)();
    };
    const Product products[] = {
        {"mesh", ds->getFilePath_Dem_Mesh(), &PtCloudDataSet::setContent_Dem_Mesh},
        {"height map", ds->getFilePath_Dem_HeightMap(), &PtCloudDataSet::setContent_Dem_HeightMap},
        {"contour", ds->getFilePath_Dem_Contour(), &PtCloudDataSet::setContent_Dem_Contour},
        {"classify", ds->getFilePath_Dem_Classify(), &PtCloudDataSet::setContent_Dem_Classify},
    };
    QStringList adopted;
    for (const Product& product : products) {
        QFile written(product.path);
        if (!written.open(QIODevice::ReadOnly)) continue;
        written.close();
        if (!(ds->*product.adopt)())
            return CliConsole::fail(QStringLiteral("the DEM %1 written at %2 could not be added: %3")
                                        .arg(product.label, product.path, ds->lastError()));
        adopted << QString::fromLatin1(product.label);
    }
    printSuccess(QStringLiteral("dem"), adopted.join(QStringLiteral(", ")));
    return 0;
}

}  // namespace

QList<CliCommand> CliRunCommands::commands()
{
    return {{{"run"}, "DIR DATASET --func CODE [--params JSON-LIST] [--target NAME]",
             "runs a mesh (0-2), DEM (3), split (100-107) or thinning (200) with the dialog's parameter list "
             "(default: the dialog's initial values); --target names a new split or mesh",
             2, 2, &CliRunCommands::run, {"--func", "--params", "--target"}}};
}

int CliRunCommands::run(const CliArguments& args)
{
    bool numeric = false;
    const int code = args.value("--func").toInt(&numeric);
    if (!numeric)
        return CliConsole::usage(QStringLiteral("run needs --func CODE, a whole number (0-2 mesh, 3 DEM, "
                                                "100-107 split, 200 thinning)"));
    Job job;
    job.code = code;
    job.function = findFunction(code);
    QString error;
    if (!readParams(job.function, args, &job.params, &error)) return CliConsole::usage(error);
    const bool named = job.function && (job.function->kind == Kind::Mesh || job.function->kind == Kind::Split);
    const QString target = args.value("--target").trimmed();
    if (args.has("--target")) {
        if (!named)
            return CliConsole::usage(
                QStringLiteral("--target names a new split or mesh; %1 makes neither").arg(job.title()));
        if (target.isEmpty() || target.contains(QRegularExpression(QStringLiteral("[\\\\/:*?\"<>|]"))))
            return CliConsole::usage(QStringLiteral("--target \"%1\" is empty or holds one of \\ / : * ? \" < > |")
                                         .arg(args.value("--target")));
    }

    PtCloud_Project project;
    if (!CliProjectCommands::openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    job.controller = project.getController();
    job.dataSet = job.controller->getDataSet(args.positional(1));
    if (!job.dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(args.positional(1)));
    if (!job.dataSet->isUsable(&error)) return CliConsole::fail(error);
    if (!job.function) {
        QString reason;
        execute(job, QString(), &reason);
        return CliConsole::fail(reason);
    }
    switch (job.function->kind) {
    case Kind::Dem:
        return runDem(job);
    case Kind::Sample:
        return runSample(job);
    default:
        return runNamed(job, target);
    }
}
