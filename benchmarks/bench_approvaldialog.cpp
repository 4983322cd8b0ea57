// What a question about a call with huge arguments costs: from the request to the painted dialog. Without
// short lines a megabyte that no line can end in takes half a minute, and a line for each of a few million
// values as long.

#include <qtagent/widgets/approvaldialog.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QJsonArray>

using namespace MireloQtLib::QtAgent;

namespace {

enum Content { Unbroken, Base64, Chinese, Invisible, Numbers, Nested };

QChar characterAt(Content content, int position)
{
    switch (content) {
    case Unbroken:
        return QLatin1Char('x');
    case Base64:
        return QLatin1Char(
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[position * 7919 / 64 % 64]);
    case Chinese:
        return QChar(0x4e00 + position * 31 % 2000);
    case Invisible:
        return QChar(0x200b);
    default:
        return {};
    }
}

QString textOf(Content content, int size)
{
    const int length = size / QString(characterAt(content, 0)).toUtf8().size();
    QString text;
    for (int position = 0; position < length; ++position)
        text += characterAt(content, position);
    return text;
}

QJsonArray numbersOf(int size, int depth)
{
    QJsonArray numbers;
    for (int written = 2 * depth; written < size; written += 2)
        numbers.append(1);
    for (; depth > 1; --depth)
        numbers = QJsonArray{numbers};
    return numbers;
}

QJsonValue valueOf(Content content, int size)
{
    if (content == Numbers)
        return numbersOf(size, 1);
    if (content == Nested)
        return numbersOf(size, qMin(size / 4, 1000));
    return textOf(content, size);
}

// The size is that of the value in UTF-8.
ApprovalRequest requestWith(Content content, int size)
{
    ApprovalRequest request;
    request.toolName = "write_file";
    request.arguments = QJsonObject{{"path", "notes.txt"}, {"text", valueOf(content, size)}};
    return request;
}

void asked(benchmark::State &state, Content content)
{
    const ApprovalRequest request = requestWith(content, int(state.range(0)));
    for ([[maybe_unused]] auto iteration : state) {
        ApprovalDialog dialog(request);
        dialog.show();
        QCoreApplication::processEvents();
        dialog.grab();
    }
}

#define BENCHMARK_CONTENT(content) \
    BENCHMARK_CAPTURE(asked, content, content)->Arg(1000)->Arg(5000000)->Unit(benchmark::kMillisecond)

BENCHMARK_CONTENT(Unbroken);
BENCHMARK_CONTENT(Base64);
BENCHMARK_CONTENT(Chinese);
BENCHMARK_CONTENT(Invisible);
BENCHMARK_CONTENT(Numbers);
BENCHMARK_CONTENT(Nested);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
