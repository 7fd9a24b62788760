<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="en">
<context>
    <name>Device</name>
    <message>
        <source>The camera at %1:%2 does not answer yet; the device keeps trying and opens when it does.</source>
        <translation>相机 %1:%2 尚未应答；设备会继续尝试，相机应答后即自动打开。</translation>
    </message>
    <message>
        <source>Any camera that connects to this server can type into the focused window. Enter an allowed camera to accept only that one.</source>
        <translation>任何连接到此服务器的相机都能向当前焦点窗口输入文字。请填写允许的相机，只接受该相机。</translation>
    </message>
    <message>
        <source>This machine has no network address yet; the server listens on %1:%2 and moves to the network address as soon as there is one.</source>
        <translation>本机尚无网络地址；服务器暂在 %1:%2 上监听，一旦有了网络地址即转到该地址。</translation>
    </message>
    <message>
        <source>The network address %1 is up, but the server cannot listen on %1:%2; it keeps listening on %3:%2 and tries again.</source>
        <translation>网络地址 %1 已可用，但服务器无法在 %1:%2 上监听；它继续在 %3:%2 上监听并会再次尝试。</translation>
    </message>
    <message>
        <source>The network address %1 is up; the server now listens on %1:%2.</source>
        <translation>网络地址 %1 已可用；服务器现在在 %1:%2 上监听。</translation>
    </message>
</context>
<context>
    <name>FrameFileWriter</name>
    <message>
        <source>no space left on the disk</source>
        <translation>磁盘空间已满</translation>
    </message>
    <message>
        <source>the directory is gone</source>
        <translation>目录已不存在</translation>
    </message>
    <message>
        <source>no permission to write there</source>
        <translation>没有写入权限</translation>
    </message>
    <message>
        <source>%1 frames could not be written to %2 before the device closed; their texts are in the log.</source>
        <translation>设备关闭前有 %1 帧未能写入 %2；其内容已记录在日志中。</translation>
    </message>
    <message>
        <source>Frames are written to %1 again; the %2 frames that waited are saved.</source>
        <translation>帧已重新写入 %1；等待中的 %2 帧已保存。</translation>
    </message>
    <message>
        <source>More frames wait for %1 than memory holds: new frames are lost and their texts go to the log.</source>
        <translation>等待写入 %1 的帧超出内存上限：新帧将丢失，其内容记录在日志中。</translation>
    </message>
    <message>
        <source>Frames cannot be written to %1: %2. They wait in memory and are written as soon as the disk takes them again.</source>
        <translation>帧无法写入 %1：%2。帧暂存于内存中，磁盘恢复可写后立即写入。</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Tapwright</source>
        <translation>Tapwright</translation>
    </message>
    <message>
        <source>Device1</source>
        <translation>设备1</translation>
    </message>
    <message>
        <source>Device2</source>
        <translation>设备2</translation>
    </message>
    <message>
        <source>Device%1</source>
        <translation>设备%1</translation>
    </message>
    <message>
        <source>Add device</source>
        <translation>添加设备</translation>
    </message>
    <message>
        <source>Remove device</source>
        <translation>删除设备</translation>
    </message>
    <message>
        <source>%1 is open: close it before removing it.</source>
        <translation>%1 已打开：请先关闭再删除。</translation>
    </message>
    <message>
        <source>Remove %1 and its settings?</source>
        <translation>删除%1及其设置？</translation>
    </message>
    <message>
        <source>aboutToCloseSlot()</source>
        <translation>连接即将关闭</translation>
    </message>
    <message>
        <source>readChannelFinishedSlot()</source>
        <translation>读取通道已结束</translation>
    </message>
    <message>
        <source>Maximize (&amp;B)</source>
        <translation>最大化(&amp;B)</translation>
    </message>
    <message>
        <source>Minimize (&amp;I)</source>
        <translation>最小化(&amp;I)</translation>
    </message>
    <message>
        <source>Reduction (&amp;R)</source>
        <translation>还原(&amp;R)</translation>
    </message>
    <message>
        <source>Quit (&amp;Q)</source>
        <translation>退出(&amp;Q)</translation>
    </message>
    <message>
        <source>Serial port Tapwright</source>
        <translation>Tapwright 串口助手</translation>
    </message>
    <message>
        <source>There is no system tray on this desktop, so minimising keeps the window in the task bar.</source>
        <translation>此桌面没有系统托盘，因此最小化时窗口仍留在任务栏中。</translation>
    </message>
</context>
<context>
    <name>MainWindowClass</name>
    <message>
        <source>MainWindow</source>
        <translation>主窗口</translation>
    </message>
    <message>
        <source>Clear data</source>
        <translation>清除数据</translation>
    </message>
    <message>
        <source>Automatic startup</source>
        <translation>开机自启动</translation>
    </message>
    <message>
        <source>Minimal enable</source>
        <translation>最小化到托盘</translation>
    </message>
    <message>
        <source>Version：V1.00.003</source>
        <translation>版本：V1.00.003</translation>
    </message>
</context>
<context>
    <name>NetTCPServer</name>
    <message>
        <source>The network initialization failed!</source>
        <translation>网络初始化失败！</translation>
    </message>
    <message>
        <source>Failed to create a server!</source>
        <translation>创建服务器失败！</translation>
    </message>
    <message>
        <source>Failed to open the server!</source>
        <translation>打开服务器失败！</translation>
    </message>
    <message>
        <source>Opening the server successfully!</source>
        <translation>服务器已成功打开！</translation>
    </message>
    <message>
        <source>Shut down the server successfully!</source>
        <translation>服务器已成功关闭！</translation>
    </message>
    <message>
        <source>Camera %1:%2 connected to the server successfully!</source>
        <translation>相机 %1:%2 已成功连接到服务器！</translation>
    </message>
    <message>
        <source>The camera %1:%2 is disconnected from the server!</source>
        <translation>相机 %1:%2 已与服务器断开连接！</translation>
    </message>
    <message>
        <source>The camera %1:%2 is not the allowed camera %3; it was turned away.</source>
        <translation>相机 %1:%2 不是允许的相机 %3，已拒绝连接。</translation>
    </message>
    <message>
        <source>The camera %1 connected again; its earlier connection was closed.</source>
        <translation>相机 %1 已重新连接；它之前的连接已关闭。</translation>
    </message>
    <message>
        <source>The camera %1 is not the allowed camera %2; %3 of its connections were turned away since the last message.</source>
        <translation>相机 %1 不是允许的相机 %2，自上一条消息以来已拒绝它的 %3 次连接。</translation>
    </message>
</context>
<context>
    <name>NetTcpClient</name>
    <message>
        <source>The network initialization failed. </source>
        <translation>网络初始化失败。</translation>
    </message>
    <message>
        <source>Description Failed to create a client.</source>
        <translation>创建客户端失败。</translation>
    </message>
    <message>
        <source>Failed to connect to the server.</source>
        <translation>连接服务器失败。</translation>
    </message>
    <message>
        <source>Link to server successfully!</source>
        <translation>已成功连接到服务器！</translation>
    </message>
    <message>
        <source>Disconnected server successfully!</source>
        <translation>已成功断开与服务器的连接！</translation>
    </message>
    <message>
        <source>This device is successfully connected to camera %1:%2 !</source>
        <translation>本设备已成功连接到相机 %1:%2！</translation>
    </message>
    <message>
        <source>This device is disconnected from camera %1:%2 !</source>
        <translation>本设备已与相机 %1:%2 断开连接！</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>Tip</source>
        <translation>提示</translation>
    </message>
    <message>
        <source>A software instance is already running! The current instance will be closed.</source>
        <translation>已有一个程序实例正在运行！当前实例将被关闭。</translation>
    </message>
</context>
<context>
    <name>TCPSettingWidget</name>
    <message>
        <source>Form</source>
        <translation>设备设置</translation>
    </message>
    <message>
        <source>IP address</source>
        <translation>IP 地址</translation>
    </message>
    <message>
        <source>PortNumber</source>
        <translation>端口号</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>打开</translation>
    </message>
    <message>
        <source>TCP protocol</source>
        <translation>TCP 协议</translation>
    </message>
    <message>
        <source>Select Save File Directory</source>
        <translation>选择文件保存目录</translation>
    </message>
    <message>
        <source>End Char</source>
        <translation>结束字符</translation>
    </message>
    <message>
        <source>Start Char</source>
        <translation>起始字符</translation>
    </message>
    <message>
        <source>TCP Client</source>
        <translation>TCP 客户端</translation>
    </message>
    <message>
        <source>TCP Server</source>
        <translation>TCP 服务器</translation>
    </message>
    <message>
        <source>Enter an IP address or port number!</source>
        <translation>请输入 IP 地址和端口号！</translation>
    </message>
    <message>
        <source>Enter a start char or end char!</source>
        <translation>请输入起始字符和结束字符！</translation>
    </message>
    <message>
        <source>You did not select any file save directory.</source>
        <translation>您还没有选择文件保存目录。</translation>
    </message>
    <message>
        <source>Connect</source>
        <translation>连接</translation>
    </message>
    <message>
        <source>Disconnect</source>
        <translation>断开连接</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>关闭</translation>
    </message>
    <message>
        <source>Keep every frame</source>
        <translation>保留每一帧</translation>
    </message>
    <message>
        <source>Type into focused window</source>
        <translation>输入到焦点窗口</translation>
    </message>
    <message>
        <source>Typing speed</source>
        <translation>输入速度</translation>
    </message>
    <message>
        <source>Allowed camera</source>
        <translation>允许的相机</translation>
    </message>
    <message>
        <source>Any camera</source>
        <translation>任意相机</translation>
    </message>
    <message>
        <source>Wait for the camera at start</source>
        <translation>启动时等待相机</translation>
    </message>
    <message>
        <source>When the device is stored open and its camera does not answer at start, keep trying every second and open as soon as it answers.</source>
        <translation>设备保存为打开状态而启动时相机未应答时，每秒重试一次，相机应答后立即打开。</translation>
    </message>
    <message>
        <source>Waiting for the camera at %1:%2; the device opens as soon as it answers.</source>
        <translation>正在等待相机 %1:%2；相机应答后设备立即打开。</translation>
    </message>
    <message>
        <source>Enter the allowed camera as an IP address, or leave it empty!</source>
        <translation>请以 IP 地址填写允许的相机，或留空！</translation>
    </message>
    <message>
        <source>Slowest</source>
        <translation>最慢</translation>
    </message>
    <message>
        <source>Slow</source>
        <translation>慢</translation>
    </message>
    <message>
        <source>Normal</source>
        <translation>正常</translation>
    </message>
    <message>
        <source>Fast</source>
        <translation>快</translation>
    </message>
    <message>
        <source>Fastest</source>
        <translation>最快</translation>
    </message>
</context>
<context>
    <name>ToolBar</name>
    <message>
        <source>ToolBar</source>
        <translation>标题栏</translation>
    </message>
</context>
</TS>
