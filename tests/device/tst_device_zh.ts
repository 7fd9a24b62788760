<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>TCPSettingWidget</name>
    <message>
        <source>Open</source>
        <translation>打开</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>关闭</translation>
    </message>
    <message>
        <source>Connect</source>
        <translation>连接</translation>
    </message>
    <message>
        <source>Disconnect</source>
        <translation>断开</translation>
    </message>
    <message>
        <source>TCP Client</source>
        <translation>TCP客户端</translation>
    </message>
    <message>
        <source>TCP Server</source>
        <translation>TCP服务端</translation>
    </message>
    <message>
        <source>IP address</source>
        <translation>IP地址</translation>
    </message>
</context>
</TS>
