// Figures for the interface kit on the offscreen platform: each window built from its .ui file
// until it is shown and painted once, and one frame of a 50-row disk list with a selection.
#include "ui/controls/LLDrakMode.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QImage>
#include <QVBoxLayout>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRowHeight = 36;
constexpr int kListWidth = 240;

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

void reportMicros(benchmark::State &state, const std::vector<double> &micros) {
    state.counters["median_us"] = median(micros);
    state.counters["min_us"] = *std::min_element(micros.begin(), micros.end());
    state.counters["max_us"] = *std::max_element(micros.begin(), micros.end());
}

// Notes the first paint event reaching a window or any widget inside it.
class PaintWatch : public QObject {
public:
    explicit PaintWatch(QWidget *window)
        : m_window(window) {}
    bool painted = false;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override {
        if (event->type() == QEvent::Paint && watched->isWidgetType() &&
            m_window->isAncestorOf(static_cast<QWidget *>(watched)))
            painted = true;
        return false;
    }

private:
    QWidget *const m_window;
};

// Shows the window and runs events until its first paint has happened; false when none came.
bool showUntilPainted(QWidget *window) {
    PaintWatch watch(window);
    qApp->installEventFilter(&watch);
    window->show();
    const QDeadlineTimer deadline(5000);
    while (!watch.painted && !deadline.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents);
    qApp->removeEventFilter(&watch);
    return watch.painted;
}

void dropDeleted() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// Times building (make), showing and first painting a window; closing it is not timed.
void measureWindow(benchmark::State &state, const std::function<QWidget *()> &make) {
    std::vector<double> micros;
    micros.reserve(std::size_t(state.max_iterations));
    for (auto _ : state) {
        const auto start = Clock::now();
        QWidget *window = make();
        const bool painted = showUntilPainted(window);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        state.SetIterationTime(micros.back() / 1e6);
        window->close();
        delete window;
        dropDeleted();
        if (!painted) {
            state.SkipWithError("the window was never painted");
            return;
        }
    }
    reportMicros(state, micros);
}

QWidget &parentWindow() {
    static QWidget *parent = [] {
        auto *made = new QWidget;
        made->resize(900, 600);
        showUntilPainted(made);
        return made;
    }();
    return *parent;
}

void BM_RenameWindow(benchmark::State &state) {
    measureWindow(state, [] { return new NTRenameWindowController(&parentWindow()); });
}
BENCHMARK(BM_RenameWindow)->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Through beginSheet, as the program opens it: window-modal on the parent, without a loop.
void BM_LoadingSheet(benchmark::State &state) {
    measureWindow(state, [] {
        return NTLoadingWindowController::beginSheet(&parentWindow(),
                                                     qtTrId("disk_repair_loading"));
    });
}
BENCHMARK(BM_LoadingSheet)->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_GuideWindow(benchmark::State &state) {
    measureWindow(state, [] {
        return new NTFullAccessWindowController(&parentWindow(), [] { return true; });
    });
}
BENCHMARK(BM_GuideWindow)->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

NTTableRowView *makeRow(const QString &name, bool internal, bool selected) {
    auto *row = new NTTableRowView;
    row->setFixedSize(kListWidth, kRowHeight);
    row->setInternal(internal);
    auto *cell = new NTTableCellView;
    cell->textField()->setText(name);
    row->addSubview(cell);
    row->setSelected(selected);
    return row;
}

void BM_RowView(benchmark::State &state) {
    measureWindow(state, [] { return makeRow(u"Windows"_s, true, true); });
}
BENCHMARK(BM_RowView)->Iterations(500)->UseManualTime()->Unit(benchmark::kMicrosecond);

std::unique_ptr<NTBackGroundView> makeList(int rows, int selectedRow) {
    auto list = std::make_unique<NTBackGroundView>();
    list->setBackgroundColor(QApplication::palette().color(QPalette::Window));
    auto *layout = new QVBoxLayout(list.get());
    layout->setContentsMargins(0, 6, 0, 6);
    layout->setSpacing(0);
    for (int row = 0; row < rows; ++row)
        layout->addWidget(makeRow(u"Volume %1"_s.arg(row), row % 3 == 0, row == selectedRow));
    list->setFixedWidth(kListWidth);
    return list;
}

// One frame of the whole list, rendered into an image as a repaint of the window would be.
void BM_PaintFiftyRows(benchmark::State &state) {
    const auto list = makeList(50, 7);
    showUntilPainted(list.get());
    QImage frame(list->size(), QImage::Format_ARGB32_Premultiplied);
    std::vector<double> micros;
    micros.reserve(std::size_t(state.max_iterations));
    for (auto _ : state) {
        const auto start = Clock::now();
        frame.fill(Qt::transparent);
        list->render(&frame);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        state.SetIterationTime(micros.back() / 1e6);
    }
    benchmark::DoNotOptimize(frame.constBits());
    reportMicros(state, micros);
    state.counters["height_px"] = list->height();
}
BENCHMARK(BM_PaintFiftyRows)->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);

QtMessageHandler g_standardHandler = nullptr;

// The offscreen platform says what it cannot do (size hints, masks) on every window it shows;
// the figures would drown in it.
void dropPlatformNotes(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    if (!text.startsWith(u"This plugin does not support"_s))
        g_standardHandler(type, context, text);
}

} // namespace

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    g_standardHandler = qInstallMessageHandler(dropPlatformNotes);
    // The theme notifier asks the portal once; that belongs to start-up, not to any window.
    LLDrakMode::shared();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
