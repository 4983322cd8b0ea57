#include "streamfixtures.h"

#include <QJsonDocument>
#include <QJsonObject>

QVector<StreamFixture> streamFixtures()
{
    return {
        {"as most services send it",
         R"x(data: {"choices":[{"index":0,"delta":{"role":"assistant","content":null,"tool_calls":[{"index":0,"id":"call_a","type":"function","function":{"name":"add","arguments":""}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"function":{"arguments":"{\"x\":"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"function":{"arguments":"1}"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{},"finish_reason":"tool_calls"}],"usage":null}
data: {"choices":[],"usage":{"prompt_tokens":9,"completion_tokens":12,"total_tokens":21}})x",
         R"x([["call_a","add","{\"x\":1}"]])x",
         {},
         {},
         {},
         {9, 12, -1}},
        {"no index, more keys, and stop",
         R"x(data: {"choices":[{"index":0,"delta":{"role":"assistant","tool_calls":[{"extra_content":{"google":{"thought_signature":"EjQK"}},"function":{"arguments":"{\"x\":1}","name":"add"},"id":"jm4o","type":"function"}]}}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"function":{"arguments":"{\"x\":2}","name":"add"},"id":"k0x1","type":"function"}]},"finish_reason":"stop"}]})x",
         R"x([["jm4o","add","{\"x\":1}"],["k0x1","add","{\"x\":2}"]])x"},
        {"two calls in one event, neither index nor id",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"function":{"name":"now","arguments":""}},{"function":{"name":"add","arguments":""}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["qa0000001","now","{}"],["qa0000002","add","{}"]])x"},
        {"the index 0 twice",
         R"x(data: {"choices":[{"index":0,"delta":{"content":"","tool_calls":[{"id":"call_1","index":0,"type":"function","function":{"name":"add","arguments":"{\"x\":1}"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":"","tool_calls":[{"id":"call_2","index":0,"type":"function","function":{"name":"add","arguments":"{\"x\":2}"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{},"finish_reason":"tool_calls"}]})x",
         R"x([["call_1","add","{\"x\":1}"],["call_2","add","{\"x\":2}"]])x"},
        {"id, type and name in each piece",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"t-aa62","type":"function","function":{"name":"add","arguments":"{\"x\":"},"name":null}]},"finish_reason":null}],"usage":null}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"t-aa62","type":"function","function":{"name":"add","arguments":"1}"},"name":null}]},"finish_reason":"tool_calls"}],"usage":null})x",
         R"x([["t-aa62","add","{\"x\":1}"]])x"},
        {"an id of no characters and an empty function",
         R"x(data: {"choices":[{"delta":{"content":null,"tool_calls":[{"function":{"name":"add","arguments":""},"index":0,"id":"call_d","type":"function"}],"role":"assistant"},"finish_reason":null,"index":0}],"usage":null}
data: {"choices":[{"delta":{"tool_calls":[{"function":{"arguments":"{\"x\":1}"},"index":0,"id":"","type":"function"}]},"index":0}],"usage":null}
data: {"choices":[{"delta":{"tool_calls":[{"function":{},"index":0,"id":"","type":"function"}]},"index":0}],"usage":null}
data: {"choices":[{"finish_reason":"tool_calls","delta":{},"index":0}],"usage":null})x",
         R"x([["call_d","add","{\"x\":1}"]])x"},
        {"a name in two pieces",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add_"}}]}}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"function":{"name":"numbers","arguments":""}}]}}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"function":{"name":"","arguments":"{}"}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["c","add_numbers","{}"]])x"},
        {"arguments that are an object",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add","arguments":{"x":1}}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["c","add","{\"x\":1}"]])x"},
        {"arguments of null beside a sound call",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","function":{"name":"now","arguments":null}},{"index":1,"id":"d","function":{"name":"add","arguments":"{\"x\":1}"}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["c","now","{}"],["d","add","{\"x\":1}"]])x"},
        {"no finish reason",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add","arguments":"{\"x\":1}"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":""},"finish_reason":null}]})x",
         R"x([["c","add","{\"x\":1}"]])x"},
        {"text before and after the call",
         R"x(data: {"choices":[{"index":0,"delta":{"role":"assistant","content":"Let me look."},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"now","arguments":"{}"}}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":" Done."},"finish_reason":"stop"}]})x",
         R"x([["c","now","{}"]])x", "Let me look. Done."},
        {"two choices",
         R"x(data: {"choices":[{"index":0,"delta":{"content":"A"}},{"index":1,"delta":{"content":"B"}}]}
data: {"choices":[{"index":1,"delta":{"tool_calls":[{"index":0,"id":"z","function":{"name":"now","arguments":"{}"}}]},"finish_reason":"tool_calls"}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","function":{"name":"add","arguments":"{}"}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["c","add","{}"]])x", "A"},
        {"the index -1",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":-1,"id":"c","type":"function","function":{"name":"add","arguments":"{\"x\":"}}]}}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":-1,"function":{"arguments":"1}"}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["c","add","{\"x\":1}"]])x"},
        {"the old function_call",
         R"x(data: {"choices":[{"index":0,"delta":{"role":"assistant","content":null,"function_call":{"name":"add","arguments":""}},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"function_call":{"arguments":"{\"x\":1}"}},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{},"finish_reason":"function_call"}]})x",
         R"x([["qa0000001","add","{\"x\":1}"]])x"},
        {"an error after half a call",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add","arguments":"{\"x\""}}]},"finish_reason":null}]}
data: {"id":"g1","object":"chat.completion.chunk","error":{"code":"server_error","message":"Provider disconnected"},"choices":[{"index":0,"delta":{"content":""},"finish_reason":"error"}]})x",
         R"x([])x",
         {},
         "Incomplete tool call from the model.",
         "Provider disconnected"},
        {"the error is a field of its own",
         R"x(error: {"code":400,"message":"context too long","type":"invalid_request_error"})x",
         R"x([])x",
         {},
         "Invalid JSON response: illegal value",
         "context too long"},
        {"cut in the arguments",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add","arguments":"{\"x\":12"}}]},"finish_reason":null}]})x",
         R"x([])x",
         {},
         "Incomplete tool call from the model.",
         {},
         {},
         {},
         false},
        {"cut by the token limit",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"c","type":"function","function":{"name":"add","arguments":"{\"s\":\"ab"}}]},"finish_reason":"length"}]})x",
         R"x([])x",
         {},
         "Incomplete tool call from the model."},
        {"two ids for one call",
         R"x(data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"call_A","type":"function","function":{"name":"add","arguments":""}}]}}]}
data: {"choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"id":"call_B","function":{"arguments":"{\"x\":1}"}}]},"finish_reason":"tool_calls"}]})x",
         R"x([["call_A","add","{\"x\":1}"]])x"},
        {"usage in the choice, and choices of null",
         R"x(data: {"choices":[{"index":0,"delta":{"content":"Hi","tool_calls":[]},"finish_reason":""}],"usage":null,"error":null}
data: {"choices":[{"index":0,"delta":{},"finish_reason":"stop","usage":{"prompt_tokens":9,"completion_tokens":12,"total_tokens":21}}]}
data: {"choices":null,"usage":{"prompt_tokens":9,"completion_tokens":12,"total_tokens":21}})x",
         R"x([])x",
         "Hi",
         {},
         {},
         {9, 12, -1}},
        {"comments, and an event that says nothing",
         R"x(:
: OPENROUTER PROCESSING
event: keepalive
data: {}
retry: 3000
data:
data:{"choices":[{"index":0,"delta":{"content":"Hi"},"finish_reason":"stop"}]})x",
         R"x([])x", "Hi"},
        {"content in parts, and reasoning under two names",
         R"x(data: {"choices":[{"index":0,"delta":{"content":null,"reasoning_content":"Add"},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":null,"reasoning":" them"},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":[{"type":"thinking","thinking":[{"type":"text","text":" ok"}]}]},"finish_reason":null}]}
data: {"choices":[{"index":0,"delta":{"content":[{"type":"text","text":"Hi"}]},"finish_reason":"stop"}]})x",
         R"x([])x",
         "Hi",
         {},
         {},
         {},
         "Add them ok"},
    };
}

QByteArray StreamFixture::bytes(const QByteArray &lineEnd) const
{
    QByteArray bytes;
    // An event of two lines has no empty line between them.
    for (const QByteArray &line : lines.split('\n'))
        bytes += line + lineEnd + (line.startsWith("event:") ? QByteArray() : lineEnd);
    return hasEndMark ? bytes + "data: [DONE]" + lineEnd + lineEnd : bytes;
}

QByteArray summaryOf(const QJsonArray &calls)
{
    QJsonArray summary;
    for (const QJsonValue &value : calls) {
        const QJsonObject call = value.toObject();
        const QJsonObject function = call["function"].toObject();
        summary.append(QJsonArray{call["id"], function["name"], function["arguments"]});
    }
    return QJsonDocument(summary).toJson(QJsonDocument::Compact);
}
