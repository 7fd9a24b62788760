<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>QDialogButtonBox</name>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>QFileDialog</name>
    <message>
        <source>%1
Directory not found.
Please verify the correct directory name was given.</source>
        <translation>%1
Directory not found.
Please verify the correct directory name was given.</translation>
    </message>
    <message>
        <source>%1
File not found.
Please verify the correct file name was given.</source>
        <translation>%1
File not found.
Please verify the correct file name was given.</translation>
    </message>
    <message>
        <source>%1 File</source>
        <translation>%1 File</translation>
    </message>
    <message>
        <source>%1 already exists.
Do you want to replace it?</source>
        <translation>%1 already exists.
Do you want to replace it?</translation>
    </message>
    <message>
        <source>&amp;Choose</source>
        <translation>&amp;Choose</translation>
    </message>
    <message>
        <source>&amp;Delete</source>
        <translation>&amp;Delete</translation>
    </message>
    <message>
        <source>&amp;New Folder</source>
        <translation>&amp;New Folder</translation>
    </message>
    <message>
        <source>&amp;Open</source>
        <translation>&amp;Open</translation>
    </message>
    <message>
        <source>&amp;Rename</source>
        <translation>&amp;Rename</translation>
    </message>
    <message>
        <source>&amp;Save</source>
        <translation>&amp;Save</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is write protected.
Do you want to delete it anyway?</source>
        <translation>&apos;%1&apos; is write protected.
Do you want to delete it anyway?</translation>
    </message>
    <message>
        <source>Alias</source>
        <translation>Alias</translation>
    </message>
    <message>
        <source>All Files (*)</source>
        <translation>All Files (*)</translation>
    </message>
    <message>
        <source>All files (*)</source>
        <translation>All files (*)</translation>
    </message>
    <message>
        <source>Alt+Left</source>
        <translation>Alt+Left</translation>
    </message>
    <message>
        <source>Alt+Right</source>
        <translation>Alt+Right</translation>
    </message>
    <message>
        <source>Alt+Up</source>
        <translation>Alt+Up</translation>
    </message>
    <message>
        <source>Are you sure you want to delete &apos;%1&apos;?</source>
        <translation>Are you sure you want to delete &apos;%1&apos;?</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>Back</translation>
    </message>
    <message>
        <source>Change to detail view mode</source>
        <translation>Change to detail view mode</translation>
    </message>
    <message>
        <source>Change to list view mode</source>
        <translation>Change to list view mode</translation>
    </message>
    <message>
        <source>Could not delete directory.</source>
        <translation>Could not delete directory.</translation>
    </message>
    <message>
        <source>Create New Folder</source>
        <translation>Create New Folder</translation>
    </message>
    <message>
        <source>Create a New Folder</source>
        <translation>Create a New Folder</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>Detail View</source>
        <translation>Detail View</translation>
    </message>
    <message>
        <source>Directories</source>
        <translation>Directories</translation>
    </message>
    <message>
        <source>Directory:</source>
        <translation>Directory:</translation>
    </message>
    <message>
        <source>Drive</source>
        <translation>Drive</translation>
    </message>
    <message>
        <source>File</source>
        <translation>File</translation>
    </message>
    <message>
        <source>File &amp;name:</source>
        <translation>File &amp;name:</translation>
    </message>
    <message>
        <source>File Folder</source>
        <translation>File Folder</translation>
    </message>
    <message>
        <source>Files</source>
        <translation>Files</translation>
    </message>
    <message>
        <source>Files of type:</source>
        <translation>Files of type:</translation>
    </message>
    <message>
        <source>Find Directory</source>
        <translation>Find Directory</translation>
    </message>
    <message>
        <source>Folder</source>
        <translation>Folder</translation>
    </message>
    <message>
        <source>Forward</source>
        <translation>Forward</translation>
    </message>
    <message>
        <source>Go back</source>
        <translation>Go back</translation>
    </message>
    <message>
        <source>Go forward</source>
        <translation>Go forward</translation>
    </message>
    <message>
        <source>Go to the parent directory</source>
        <translation>Go to the parent directory</translation>
    </message>
    <message>
        <source>List View</source>
        <translation>List View</translation>
    </message>
    <message>
        <source>List of places and bookmarks</source>
        <translation>List of places and bookmarks</translation>
    </message>
    <message>
        <source>Look in:</source>
        <translation>Look in:</translation>
    </message>
    <message>
        <source>My Computer</source>
        <translation>My Computer</translation>
    </message>
    <message>
        <source>New Folder</source>
        <translation>New Folder</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Open</translation>
    </message>
    <message>
        <source>Parent Directory</source>
        <translation>Parent Directory</translation>
    </message>
    <message>
        <source>Recent Places</source>
        <translation>Recent Places</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Remove</translation>
    </message>
    <message>
        <source>Save As</source>
        <translation>Save As</translation>
    </message>
    <message>
        <source>Shortcut</source>
        <translation>Shortcut</translation>
    </message>
    <message>
        <source>Show </source>
        <translation>Show </translation>
    </message>
    <message>
        <source>Show &amp;hidden files</source>
        <translation>Show &amp;hidden files</translation>
    </message>
    <message>
        <source>Sidebar</source>
        <translation>Sidebar</translation>
    </message>
    <message>
        <source>Unknown</source>
        <translation>Unknown</translation>
    </message>
</context>
<context>
    <name>QFileSystemModel</name>
    <message>
        <source>&lt;b&gt;The name &quot;%1&quot; cannot be used.&lt;/b&gt;&lt;p&gt;Try using another name, with fewer characters or no punctuation marks.</source>
        <translation>&lt;b&gt;The name &quot;%1&quot; cannot be used.&lt;/b&gt;&lt;p&gt;Try using another name, with fewer characters or no punctuation marks.</translation>
    </message>
    <message>
        <source>Computer</source>
        <translation>Computer</translation>
    </message>
    <message>
        <source>Date Modified</source>
        <translation>Date Modified</translation>
    </message>
    <message>
        <source>Invalid filename</source>
        <translation>Invalid filename</translation>
    </message>
    <message>
        <source>Kind</source>
        <translation>Kind</translation>
    </message>
    <message>
        <source>My Computer</source>
        <translation>My Computer</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Size</translation>
    </message>
    <message>
        <source>Type</source>
        <translation>Type</translation>
    </message>
</context>
<context>
    <name>QLineEdit</name>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Copy</translation>
    </message>
    <message>
        <source>&amp;Paste</source>
        <translation>&amp;Paste</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Redo</translation>
    </message>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Undo</translation>
    </message>
    <message>
        <source>Cu&amp;t</source>
        <translation>Cu&amp;t</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>Select All</source>
        <translation>Select All</translation>
    </message>
</context>
<context>
    <name>QMessageBox</name>
    <message>
        <source>About Qt</source>
        <translation>About Qt</translation>
    </message>
    <message>
        <source>Hide Details...</source>
        <translation>Hide Details...</translation>
    </message>
    <message>
        <source>Show Details...</source>
        <translation>Show Details...</translation>
    </message>
</context>
<context>
    <name>QPlatformTheme</name>
    <message>
        <source>&amp;No</source>
        <translation>&amp;No</translation>
    </message>
    <message>
        <source>&amp;Yes</source>
        <translation>&amp;Yes</translation>
    </message>
    <message>
        <source>Abort</source>
        <translation>Abort</translation>
    </message>
    <message>
        <source>Apply</source>
        <translation>Apply</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Close</translation>
    </message>
    <message>
        <source>Discard</source>
        <translation>Discard</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Help</translation>
    </message>
    <message>
        <source>Ignore</source>
        <translation>Ignore</translation>
    </message>
    <message>
        <source>N&amp;o to All</source>
        <translation>N&amp;o to All</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Open</translation>
    </message>
    <message>
        <source>Reset</source>
        <translation>Reset</translation>
    </message>
    <message>
        <source>Restore Defaults</source>
        <translation>Restore Defaults</translation>
    </message>
    <message>
        <source>Retry</source>
        <translation>Retry</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Save</translation>
    </message>
    <message>
        <source>Save All</source>
        <translation>Save All</translation>
    </message>
    <message>
        <source>Yes to &amp;All</source>
        <translation>Yes to &amp;All</translation>
    </message>
</context>
<context>
    <name>QWidgetTextControl</name>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Copy</translation>
    </message>
    <message>
        <source>&amp;Paste</source>
        <translation>&amp;Paste</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Redo</translation>
    </message>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Undo</translation>
    </message>
    <message>
        <source>Copy &amp;Link Location</source>
        <translation>Copy &amp;Link Location</translation>
    </message>
    <message>
        <source>Cu&amp;t</source>
        <translation>Cu&amp;t</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>Select All</source>
        <translation>Select All</translation>
    </message>
</context>
</TS>
