// Rendering equals replacing one variable after the other, in the order of their names.

#include "fuzztarget.h"

#include <qtagent/prompttemplate.h>

using namespace MireloQtLib::QtAgent;

namespace {

// A second implementation, by splitting and joining. It has no limit on growth of its own.
QString renderPlainly(QString text, const PromptVariables &variables)
{
    for (const QString &name : variables.keys())
        text = text.split("{" + name + "}").join(variables.value(name));
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    PromptVariables variables;
    for (int count = input.takeByte() % 4; count > 0; --count) {
        const QString name = QString::fromUtf8(input.takeField());
        variables.insert(name, QString::fromUtf8(input.takeField().left(64)));
    }
    const QString text = QString::fromUtf8(input.rest());
    FUZZ_REQUIRE(PromptTemplate::render(text, variables) == renderPlainly(text, variables));
    FUZZ_REQUIRE(PromptTemplate::render(text, {}) == text);

    PromptTemplate prompt;
    prompt.addSystem(text);
    prompt.addUser("fixed");
    const QVector<ChatMessage> messages = prompt.format(variables);
    FUZZ_REQUIRE(messages.size() == 2);
    FUZZ_REQUIRE(messages.at(0).content == renderPlainly(text, variables));
    FUZZ_REQUIRE(messages.at(1).role == "user");
    return 0;
}
