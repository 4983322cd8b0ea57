<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="zh_CN">
<context>
    <name>AssistantMenus</name>
    <message>
        <source>对话(&amp;C)</source>
        <translation>&amp;Conversation</translation>
    </message>
    <message>
        <source>新对话(&amp;N)</source>
        <translation>&amp;New Conversation</translation>
    </message>
    <message>
        <source>搜索(&amp;F)</source>
        <translation>&amp;Find</translation>
    </message>
    <message>
        <source>重命名(&amp;R)</source>
        <translation>&amp;Rename</translation>
    </message>
    <message>
        <source>删除(&amp;D)</source>
        <translation>&amp;Delete</translation>
    </message>
    <message>
        <source>撤销删除(&amp;U)</source>
        <translation>&amp;Undo Delete</translation>
    </message>
    <message>
        <source>导出(&amp;E)…</source>
        <translation>&amp;Export…</translation>
    </message>
    <message>
        <source>导入(&amp;I)…</source>
        <translation>&amp;Import…</translation>
    </message>
    <message>
        <source>退出(&amp;Q)</source>
        <translation>&amp;Quit</translation>
    </message>
    <message>
        <source>消息(&amp;M)</source>
        <translation>&amp;Message</translation>
    </message>
    <message>
        <source>停止(&amp;T)</source>
        <translation>S&amp;top</translation>
    </message>
    <message>
        <source>重新回答(&amp;R)</source>
        <translation>&amp;Regenerate Answer</translation>
    </message>
    <message>
        <source>修改问题(&amp;E)</source>
        <translation>&amp;Edit Question</translation>
    </message>
    <message>
        <source>复制消息(&amp;C)</source>
        <translation>&amp;Copy Message</translation>
    </message>
    <message>
        <source>查看(&amp;V)</source>
        <translation>&amp;View</translation>
    </message>
    <message>
        <source>放大文字(&amp;L)</source>
        <translation>&amp;Larger Text</translation>
    </message>
    <message>
        <source>缩小文字(&amp;S)</source>
        <translation>&amp;Smaller Text</translation>
    </message>
    <message>
        <source>恢复文字大小(&amp;0)</source>
        <translation>&amp;Normal Text Size</translation>
    </message>
    <message>
        <source>设置(&amp;G)</source>
        <translation>Settin&amp;gs</translation>
    </message>
    <message>
        <source>模型(&amp;M)…</source>
        <translation>&amp;Models…</translation>
    </message>
    <message>
        <source>工具(&amp;T)…</source>
        <translation>&amp;Tools…</translation>
    </message>
    <message>
        <source>用 Ctrl+Enter 发送(&amp;C)</source>
        <translation>Send with &amp;Ctrl+Enter</translation>
    </message>
    <message>
        <source>用 Enter 发送(&amp;E)</source>
        <translation>Send with &amp;Enter</translation>
    </message>
    <message>
        <source>语言(&amp;L)</source>
        <translation>&amp;Language</translation>
    </message>
    <message>
        <source>跟随系统(&amp;S)</source>
        <translation>As the &amp;System</translation>
    </message>
</context>
<context>
    <name>AssistantWindow</name>
    <message>
        <source>还没有配置模型，现在由离线的模拟模型回答。</source>
        <translation>No model is set up yet; an offline mock model answers.</translation>
    </message>
    <message>
        <source>配置模型(&amp;P)…</source>
        <translation>Set U&amp;p Model…</translation>
    </message>
    <message>
        <source>无法保存到 %1：%2</source>
        <translation>Cannot save to %1: %2</translation>
    </message>
    <message>
        <source>服务器 %1 的这些工具是新的，或与您同意时不同，您同意之后才会提供给模型：%2</source>
        <translation>These tools of the server %1 are new or not what you agreed to; the model gets them once you agree: %2</translation>
    </message>
    <message>
        <source>查看(&amp;V)…</source>
        <translation>&amp;View…</translation>
    </message>
    <message>
        <source>对话已导出到 %1。</source>
        <translation>The conversation was exported to %1.</translation>
    </message>
    <message>
        <source>无法导出：%1</source>
        <translation>Cannot export: %1</translation>
    </message>
    <message>
        <source>无法导入：%1</source>
        <translation>Cannot import: %1</translation>
    </message>
    <message>
        <source>已删除“%1”。</source>
        <translation>“%1” was deleted.</translation>
    </message>
    <message>
        <source>撤销(&amp;U)</source>
        <translation>&amp;Undo</translation>
    </message>
    <message>
        <source>对话还是空的。</source>
        <translation>The conversation is still empty.</translation>
    </message>
    <message>
        <source>导出对话</source>
        <translation>Export Conversation</translation>
    </message>
    <message>
        <source>导入对话</source>
        <translation>Import Conversation</translation>
    </message>
    <message>
        <source>对话 (*.json)</source>
        <translation>Conversations (*.json)</translation>
    </message>
    <message>
        <source>新对话</source>
        <translation>New conversation</translation>
    </message>
    <message>
        <source>%1 — Orvane 助手</source>
        <translation>%1 — Orvane Assistant</translation>
    </message>
    <message>
        <source>模拟模型</source>
        <translation>Mock model</translation>
    </message>
    <message>
        <source>无法从系统的密钥环读取密钥：%1</source>
        <translation>The key could not be read from the system&apos;s keychain: %1</translation>
    </message>
    <message>
        <source>原来的消息已被替换。</source>
        <translation>The earlier messages were replaced.</translation>
    </message>
    <message>
        <source>回答结束后切换语言。</source>
        <translation>The language changes when the answer has ended.</translation>
    </message>
    <message>
        <source>Orvane 助手</source>
        <translation>Orvane Assistant</translation>
    </message>
    <message>
        <source>对话没有保存：%1</source>
        <translation>The conversation is not saved: %1</translation>
    </message>
    <message>
        <source>可以先导出，再放弃。</source>
        <translation>You can export it first, then discard it.</translation>
    </message>
    <message>
        <source>导出(&amp;E)…</source>
        <translation>&amp;Export…</translation>
    </message>
    <message>
        <source>放弃(&amp;D)</source>
        <translation>&amp;Discard</translation>
    </message>
    <message>
        <source>取消(&amp;C)</source>
        <translation>&amp;Cancel</translation>
    </message>
    <message>
        <source>对话没有保存：%1
程序会继续尝试。</source>
        <translation>The conversation is not saved: %1
The program keeps trying.</translation>
    </message>
    <message>
        <source>导出(&amp;X)…</source>
        <translation>E&amp;xport…</translation>
    </message>
    <message>
        <source>JSON，可以再导入 (*.json)</source>
        <translation>JSON, to import again (*.json)</translation>
    </message>
    <message>
        <source>Markdown，供阅读 (*.md)</source>
        <translation>Markdown, to read (*.md)</translation>
    </message>
</context>
<context>
    <name>ChatPage</name>
    <message>
        <source>对话内容</source>
        <translation>Conversation</translation>
    </message>
    <message>
        <source>问题</source>
        <translation>Question</translation>
    </message>
    <message>
        <source>输入问题</source>
        <translation>Type a question</translation>
    </message>
    <message>
        <source>发送(&amp;S)</source>
        <translation>&amp;Send</translation>
    </message>
    <message>
        <source>停止(&amp;T)</source>
        <translation>S&amp;top</translation>
    </message>
    <message>
        <source>模型</source>
        <translation>Model</translation>
    </message>
    <message>
        <source>正在修改问题。发送后，它后面的消息会被替换。</source>
        <translation>You are editing a question. Sending it replaces the messages behind it.</translation>
    </message>
    <message>
        <source>复制(&amp;C)</source>
        <translation>&amp;Copy</translation>
    </message>
    <message>
        <source>复制消息(&amp;M)</source>
        <translation>Copy &amp;Message</translation>
    </message>
    <message>
        <source>重新回答(&amp;R)</source>
        <translation>&amp;Regenerate Answer</translation>
    </message>
    <message>
        <source>修改问题(&amp;E)</source>
        <translation>&amp;Edit Question</translation>
    </message>
</context>
<context>
    <name>ConversationFiles</name>
    <message>
        <source>文件超过 64 MiB。</source>
        <translation>The file has more than 64 MiB.</translation>
    </message>
</context>
<context>
    <name>ConversationSidebar</name>
    <message>
        <source>新对话(&amp;N)</source>
        <translation>&amp;New Conversation</translation>
    </message>
    <message>
        <source>搜索对话</source>
        <translation>Search conversations</translation>
    </message>
    <message>
        <source>对话</source>
        <translation>Conversations</translation>
    </message>
</context>
<context>
    <name>FailureAdvice</name>
    <message>
        <source>无法连接到服务</source>
        <translation>The service cannot be reached</translation>
    </message>
    <message>
        <source>请检查网络和服务地址，然后重试。</source>
        <translation>Check the network and the service&apos;s address, then try again.</translation>
    </message>
    <message>
        <source>密钥无效</source>
        <translation>The key is not valid</translation>
    </message>
    <message>
        <source>请在“设置 → 模型”中更正密钥。</source>
        <translation>Correct the key in Settings → Models.</translation>
    </message>
    <message>
        <source>余额或配额不足</source>
        <translation>No credit or quota left</translation>
    </message>
    <message>
        <source>请在服务商处充值，或者换一个模型。</source>
        <translation>Add credit at the provider, or choose another model.</translation>
    </message>
    <message>
        <source>服务繁忙</source>
        <translation>The service is busy</translation>
    </message>
    <message>
        <source>请稍等片刻再重试。</source>
        <translation>Wait a moment, then try again.</translation>
    </message>
    <message>
        <source>对话对这个模型来说太长</source>
        <translation>The conversation is too long for this model</translation>
    </message>
    <message>
        <source>请开始新对话，或者换一个模型。</source>
        <translation>Begin a new conversation, or choose another model.</translation>
    </message>
    <message>
        <source>服务没有这个地址或模型</source>
        <translation>The service does not have this address or model</translation>
    </message>
    <message>
        <source>请在“设置 → 模型”中检查地址和模型名称。</source>
        <translation>Check address and model name in Settings → Models.</translation>
    </message>
    <message>
        <source>回答中途断开</source>
        <translation>The answer broke off</translation>
    </message>
    <message>
        <source>可以重试，已收到的部分会被替换。</source>
        <translation>You can try again; what has arrived is replaced.</translation>
    </message>
    <message>
        <source>请求失败</source>
        <translation>The request failed</translation>
    </message>
    <message>
        <source>请检查设置，然后重试。</source>
        <translation>Check the settings, then try again.</translation>
    </message>
    <message>
        <source>服务没有及时回答</source>
        <translation>The service did not answer in time</translation>
    </message>
    <message>
        <source>请稍后重试，或者在“设置 → 模型”中提高时限。</source>
        <translation>Try again later, or raise the time limit in Settings → Models.</translation>
    </message>
</context>
<context>
    <name>FailureBar</name>
    <message>
        <source>重试(&amp;R)</source>
        <translation>T&amp;ry Again</translation>
    </message>
    <message>
        <source>第 %1 次尝试将在 %2 秒后开始。
%3</source>
        <translation>Attempt %1 begins in %2 seconds.
%3</translation>
    </message>
</context>
<context>
    <name>FolderTools</name>
    <message>
        <source>不能写入这个路径，调用会失败。</source>
        <translation>This path cannot be written; the call will fail.</translation>
    </message>
    <message>
        <source>将替换已有的文件：%1</source>
        <translation>Replaces the file %1</translation>
    </message>
    <message>
        <source>将新建文件：%1</source>
        <translation>Makes the new file %1</translation>
    </message>
</context>
<context>
    <name>LibraryTexts</name>
    <message>
        <source>未执行。</source>
        <translation>Not executed.</translation>
    </message>
    <message>
        <source>已取消。</source>
        <translation>Canceled.</translation>
    </message>
    <message>
        <source>用户拒绝了审批。</source>
        <translation>The user denied the call.</translation>
    </message>
    <message>
        <source>工具执行完成。</source>
        <translation>The tool has finished.</translation>
    </message>
    <message>
        <source>工具执行失败。</source>
        <translation>The tool failed.</translation>
    </message>
    <message>
        <source>工具注册表尚未配置。</source>
        <translation>No tools are set up.</translation>
    </message>
    <message>
        <source>智能体模型尚未配置。</source>
        <translation>No model is set up.</translation>
    </message>
    <message>
        <source>DeepSeek 环境变量</source>
        <translation>DeepSeek from the environment</translation>
    </message>
    <message>
        <source>OpenAI 环境变量</source>
        <translation>OpenAI from the environment</translation>
    </message>
    <message>
        <source>模拟模型</source>
        <translation>Mock model</translation>
    </message>
    <message>
        <source>未找到工具：</source>
        <translation>There is no such tool: </translation>
    </message>
</context>
<context>
    <name>McpConnection</name>
    <message>
        <source>已停止</source>
        <translation>Stopped</translation>
    </message>
    <message>
        <source>已停止：%1</source>
        <translation>Stopped: %1</translation>
    </message>
    <message numerus="yes">
        <source>可以使用，%n 个工具</source>
        <translation>
            <numerusform>Ready, %n tool</numerusform>
            <numerusform>Ready, %n tools</numerusform>
        </translation>
    </message>
    <message>
        <source>正在启动…</source>
        <translation>Starting…</translation>
    </message>
    <message>
        <source>%1；不能使用的：%2</source>
        <translation>%1; not usable: %2</translation>
    </message>
    <message>
        <source>等待您同意：%1</source>
        <translation>Waiting for your consent: %1</translation>
    </message>
</context>
<context>
    <name>McpServersPage</name>
    <message>
        <source>未命名</source>
        <translation>Unnamed</translation>
    </message>
    <message>
        <source>MCP 服务器</source>
        <translation>MCP servers</translation>
    </message>
    <message>
        <source>添加(&amp;D)</source>
        <translation>A&amp;dd</translation>
    </message>
    <message>
        <source>删除(&amp;R)</source>
        <translation>&amp;Remove</translation>
    </message>
    <message>
        <source>程序（标准输入输出）</source>
        <translation>Program (standard input and output)</translation>
    </message>
    <message>
        <source>服务（HTTP）</source>
        <translation>Service (HTTP)</translation>
    </message>
    <message>
        <source>名称(&amp;N)</source>
        <translation>&amp;Name</translation>
    </message>
    <message>
        <source>种类(&amp;K)</source>
        <translation>&amp;Kind</translation>
    </message>
    <message>
        <source>程序或地址(&amp;P)</source>
        <translation>&amp;Program or address</translation>
    </message>
    <message>
        <source>参数，每行一个(&amp;A)</source>
        <translation>&amp;Arguments, one a line</translation>
    </message>
    <message>
        <source>环境变量或请求头，每行一个(&amp;V)</source>
        <translation>&amp;Variables or headers, one a line</translation>
    </message>
    <message>
        <source>状态</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>工具(&amp;T)</source>
        <translation>&amp;Tools</translation>
    </message>
    <message>
        <source>错误输出(&amp;E)</source>
        <translation>&amp;Error output</translation>
    </message>
    <message>
        <source>保存后启动。</source>
        <translation>Starts once it is saved.</translation>
    </message>
    <message>
        <source>重新启动(&amp;S)</source>
        <translation>Re&amp;start</translation>
    </message>
    <message>
        <source>名称要有 1 到 24 个字符，只能是字母、数字、下划线和连字符。</source>
        <translation>The name needs 1 to 24 characters: letters A to Z, digits, _ and -.</translation>
    </message>
    <message>
        <source>还没有程序或地址。</source>
        <translation>The program or address is missing.</translation>
    </message>
    <message>
        <source>另一个服务器已有这个名称。</source>
        <translation>Another server has this name.</translation>
    </message>
    <message>
        <source>工具说明(&amp;X)</source>
        <translation>Tool te&amp;xt</translation>
    </message>
    <message>
        <source>%1（等待同意）</source>
        <translation>%1 (waiting for consent)</translation>
    </message>
    <message>
        <source>现在：
%1
您同意时：
%2</source>
        <translation>Now:
%1
When you agreed:
%2</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::AgentChatPanel</name>
    <message>
        <source>智能体</source>
        <translation>Agent</translation>
    </message>
    <message>
        <source>发送</source>
        <translation>Send</translation>
    </message>
    <message>
        <source>停止</source>
        <translation>Stop</translation>
    </message>
    <message>
        <source>清空</source>
        <translation>Clear</translation>
    </message>
    <message>
        <source>用户</source>
        <translation>User</translation>
    </message>
    <message>
        <source>系统</source>
        <translation>System</translation>
    </message>
    <message>
        <source>对话记录</source>
        <translation>Transcript</translation>
    </message>
    <message>
        <source>问题</source>
        <translation>Question</translation>
    </message>
    <message>
        <source>请输入 Orvane 问题...</source>
        <translation>Ask Orvane a question...</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::AgentExecutor</name>
    <message>
        <source>该工具拥有 %1 权限，需要用户确认后才能执行。</source>
        <translation>The tool has the permission %1 and runs only if you allow it.</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::ApprovalDialog</name>
    <message>
        <source>允许一次</source>
        <translation>Allow Once</translation>
    </message>
    <message>
        <source>拒绝</source>
        <translation>Deny</translation>
    </message>
    <message>
        <source>允许调用工具：%1</source>
        <translation>Allow the tool call: %1</translation>
    </message>
    <message>
        <source>权限：%1</source>
        <translation>Permission: %1</translation>
    </message>
    <message>
        <source>（共 %1 个字符，以上是前 %2 个。）</source>
        <translation>(%1 characters, of which these are the first %2.)</translation>
    </message>
    <message>
        <source>参数</source>
        <translation>Arguments</translation>
    </message>
    <message>
        <source>需要工具调用确认</source>
        <translation>Confirm Tool Call</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::CodeCopyButtons</name>
    <message>
        <source>复制</source>
        <translation>Copy</translation>
    </message>
    <message>
        <source>复制代码</source>
        <translation>Copy code</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::GraphView</name>
    <message>
        <source>%1：%2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>运行前暂停</source>
        <translation>stops before it runs</translation>
    </message>
    <message>
        <source>；</source>
        <translation>; </translation>
    </message>
    <message>
        <source>未运行</source>
        <translation>has not run</translation>
    </message>
    <message numerus="yes">
        <source>已运行 %n 次</source>
        <translation>
            <numerusform>ran %n time</numerusform>
            <numerusform>ran %n times</numerusform>
        </translation>
    </message>
    <message>
        <source>正在运行</source>
        <translation>is running</translation>
    </message>
    <message>
        <source>等待继续</source>
        <translation>waits to go on</translation>
    </message>
    <message>
        <source>出错</source>
        <translation>failed</translation>
    </message>
    <message>
        <source>流程图</source>
        <translation>Flow chart</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::MarkdownTranscript</name>
    <message>
        <source>对话记录</source>
        <translation>Transcript</translation>
    </message>
    <message>
        <source>复制消息</source>
        <translation>Copy Message</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::MockChatModel</name>
    <message>
        <source>工具调用已完成，结果如下：
- %1</source>
        <translation>The tools were called and returned:
- %1</translation>
    </message>
    <message>
        <source>我将调用工具完成设备分析。</source>
        <translation>I call the tools to analyze the devices.</translation>
    </message>
    <message>
        <source>Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。</source>
        <translation>This is the Orvane mock model, which runs on this computer. Its answers need no network and are streamed, so that programs can be tried offline.</translation>
    </message>
    <message>
        <source>当前没有可用的设备分析工具。</source>
        <translation>There are no tools here to analyze devices.</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::ModelConfigWidget</name>
    <message>
        <source>模拟模型</source>
        <translation>Mock model</translation>
    </message>
    <message>
        <source>模型配置 %1</source>
        <translation>Profile %1</translation>
    </message>
    <message>
        <source> 秒</source>
        <translation> s</translation>
    </message>
    <message>
        <source>随配置保存，但不应用于请求。</source>
        <translation>Saved with the profile, but not applied to requests.</translation>
    </message>
    <message>
        <source>配置名称</source>
        <translation>Profile</translation>
    </message>
    <message>
        <source>模型提供方</source>
        <translation>Provider</translation>
    </message>
    <message>
        <source>模型名称</source>
        <translation>Model</translation>
    </message>
    <message>
        <source>最大 Token</source>
        <translation>Maximum tokens</translation>
    </message>
    <message>
        <source>超时时间</source>
        <translation>Time limit</translation>
    </message>
    <message>
        <source>默认配置</source>
        <translation>Default profile</translation>
    </message>
</context>
<context>
    <name>MireloQtLib::QtAgent::ToolCallTraceView</name>
    <message>
        <source>工具</source>
        <translation>Tool</translation>
    </message>
    <message>
        <source>状态</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>权限</source>
        <translation>Permission</translation>
    </message>
    <message>
        <source>耗时</source>
        <translation>Duration</translation>
    </message>
    <message>
        <source>输入</source>
        <translation>Input</translation>
    </message>
    <message>
        <source>输出</source>
        <translation>Output</translation>
    </message>
    <message>
        <source>时间</source>
        <translation>Time</translation>
    </message>
</context>
<context>
    <name>NoticeBar</name>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
</context>
<context>
    <name>ProfileForm</name>
    <message>
        <source>名称(&amp;N)</source>
        <translation>&amp;Name</translation>
    </message>
    <message>
        <source>OpenAI 兼容服务</source>
        <translation>OpenAI-compatible service</translation>
    </message>
    <message>
        <source>DeepSeek</source>
        <translation>DeepSeek</translation>
    </message>
    <message>
        <source>离线模拟模型</source>
        <translation>Offline mock model</translation>
    </message>
    <message>
        <source>服务(&amp;P)</source>
        <translation>Service &amp;provider</translation>
    </message>
    <message>
        <source>地址(&amp;A)</source>
        <translation>&amp;Address</translation>
    </message>
    <message>
        <source>密钥(&amp;K)</source>
        <translation>&amp;Key</translation>
    </message>
    <message>
        <source>查询(&amp;Q)</source>
        <translation>&amp;Query</translation>
    </message>
    <message>
        <source>查询服务提供的模型</source>
        <translation>Ask the service which models it has</translation>
    </message>
    <message>
        <source>模型(&amp;M)</source>
        <translation>&amp;Model</translation>
    </message>
    <message>
        <source>回答上限（令牌）(&amp;L)</source>
        <translation>Answer &amp;limit (tokens)</translation>
    </message>
    <message>
        <source>时限（毫秒）(&amp;T)</source>
        <translation>&amp;Time limit (ms)</translation>
    </message>
    <message>
        <source>逐字显示回答(&amp;S)</source>
        <translation>&amp;Stream answers</translation>
    </message>
    <message>
        <source>选项不是 JSON 对象，没有采用。</source>
        <translation>The options are no JSON object and not taken.</translation>
    </message>
    <message>
        <source>选项(&amp;O)</source>
        <translation>&amp;Options</translation>
    </message>
    <message>
        <source>测试(&amp;E)</source>
        <translation>T&amp;est</translation>
    </message>
    <message>
        <source>正在测试…</source>
        <translation>Testing…</translation>
    </message>
    <message>
        <source>可以使用。</source>
        <translation>It works.</translation>
    </message>
    <message>
        <source>模拟模型没有可选的模型。</source>
        <translation>The mock model has no models to choose from.</translation>
    </message>
    <message>
        <source>正在查询…</source>
        <translation>Asking…</translation>
    </message>
    <message numerus="yes">
        <source>服务有 %n 个模型。</source>
        <translation>
            <numerusform>The service has %n model.</numerusform>
            <numerusform>The service has %n models.</numerusform>
        </translation>
    </message>
    <message>
        <source>不限</source>
        <translation>No limit</translation>
    </message>
</context>
<context>
    <name>ProfileListModel</name>
    <message>
        <source>未命名</source>
        <translation>Unnamed</translation>
    </message>
</context>
<context>
    <name>ProfilesDialog</name>
    <message>
        <source>模型</source>
        <translation>Models</translation>
    </message>
    <message>
        <source>添加(&amp;D)</source>
        <translation>A&amp;dd</translation>
    </message>
    <message>
        <source>删除(&amp;R)</source>
        <translation>&amp;Remove</translation>
    </message>
    <message>
        <source>保存在 %1，密钥也在其中，只有您可以读取。</source>
        <translation>Saved in %1, the key included, which only you can read.</translation>
    </message>
    <message>
        <source>无法保存到 %1：%2</source>
        <translation>Cannot save to %1: %2</translation>
    </message>
    <message>
        <source>那里的文件已损坏，保存时会改名保留。</source>
        <translation> The file there is damaged. It will be kept under another name when you save.</translation>
    </message>
    <message>
        <source>保存在 %1，密钥保存在系统的密钥环中。</source>
        <translation>Saved in %1; the keys are kept in the system&apos;s keychain.</translation>
    </message>
    <message>
        <source>系统的密钥环不能使用：%1
再保存一次，密钥就写入 %2，只有您可以读取。</source>
        <translation>The system&apos;s keychain cannot be used: %1
Save once more to keep the keys in %2, which only you can read.</translation>
    </message>
</context>
<context>
    <name>ThinkingPanel</name>
    <message>
        <source>思考过程</source>
        <translation>Thinking</translation>
    </message>
</context>
<context>
    <name>ToolCallPanel</name>
    <message>
        <source>停止工具(&amp;O)</source>
        <translation>St&amp;op Tool</translation>
    </message>
    <message>
        <source>工具调用</source>
        <translation>Tool calls</translation>
    </message>
    <message>
        <source>%1：%2</source>
        <translation>%1: %2</translation>
    </message>
</context>
<context>
    <name>ToolsDialog</name>
    <message>
        <source>工具</source>
        <translation>Tools</translation>
    </message>
    <message>
        <source>自带工具(&amp;B)</source>
        <translation>&amp;Built-in Tools</translation>
    </message>
    <message>
        <source>MCP 服务器(&amp;M)</source>
        <translation>&amp;MCP Servers</translation>
    </message>
    <message>
        <source>时钟：告诉模型现在的日期和时间(&amp;C)</source>
        <translation>&amp;Clock: tells the model the date and the time</translation>
    </message>
    <message>
        <source>不使用</source>
        <translation>Not used</translation>
    </message>
    <message>
        <source>选择(&amp;H)…</source>
        <translation>C&amp;hoose…</translation>
    </message>
    <message>
        <source>文件夹(&amp;F)</source>
        <translation>&amp;Folder</translation>
    </message>
    <message>
        <source>模型可以列出并读取这个文件夹里的内容；写入之前会先问您。文件夹之外的内容不能访问。</source>
        <translation>The model may list and read what is in this folder; you are asked before it writes. Nothing outside of it can be reached.</translation>
    </message>
    <message>
        <source>选择文件夹</source>
        <translation>Choose Folder</translation>
    </message>
    <message>
        <source>保存工具设置的文件已损坏，保存时会改名保留。</source>
        <translation>The file with the settings of the tools is damaged. It will be kept under another name when you save.</translation>
    </message>
    <message>
        <source>没有这个文件夹。请写出完整的路径。</source>
        <translation>There is no such folder. Enter its full path.</translation>
    </message>
</context>
<context>
    <name>TranscriptPresenter</name>
    <message>
        <source>助手</source>
        <translation>Assistant</translation>
    </message>
    <message>
        <source>我</source>
        <translation>You</translation>
    </message>
    <message>
        <source>工具 %1</source>
        <translation>Tool %1</translation>
    </message>
    <message>
        <source>已停止，回答不完整。</source>
        <translation>Stopped; the answer is not complete.</translation>
    </message>
    <message>
        <source>回答中断，不完整。</source>
        <translation>The answer broke off and is not complete.</translation>
    </message>
    <message>
        <source>程序在回答完成之前关闭，回答不完整。</source>
        <translation>The program closed before the answer was complete.</translation>
    </message>
    <message>
        <source>回答达到长度上限，被截断。可以在模型设置里提高上限。</source>
        <translation>The answer was cut at the length limit, which the model settings can raise.</translation>
    </message>
    <message>
        <source>回答被服务的内容过滤截断。</source>
        <translation>The answer was cut by the service&apos;s content filter.</translation>
    </message>
    <message>
        <source>模型拒绝回答。</source>
        <translation>The model refused to answer.</translation>
    </message>
    <message>
        <source>还有 %1 条更早的消息，向上滚动就会显示。</source>
        <translation>%1 earlier messages are shown when you scroll up.</translation>
    </message>
</context>
<context>
    <name>UsageText</name>
    <message>
        <source>回答 %1 令牌，对话共 %2 令牌</source>
        <translation>Answer %1 tokens, conversation %2 tokens</translation>
    </message>
</context>
<context>
    <name>main</name>
    <message>
        <source>对话文件已损坏，原来的文件保存在 %1。</source>
        <translation>The file with the conversations was damaged. What was in it is kept in %1.</translation>
    </message>
    <message>
        <source>Orvane 助手</source>
        <translation>Orvane Assistant</translation>
    </message>
</context>
</TS>
