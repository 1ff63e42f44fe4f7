<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>DialogTexts</name>
    <message>
        <source>Save</source>
        <extracomment>Button that saves the edited text or name. Short.</extracomment>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Cancel</source>
        <extracomment>Cancel button in a dialog. Short.</extracomment>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>%1 saves</source>
        <extracomment>Under the box of the &quot;Edit text&quot; dialog: the keys that save without reaching for the mouse. The placeholder is the key combination, e.g. Ctrl+Return.</extracomment>
        <translation>%1 speichert</translation>
    </message>
</context>
<context>
    <name>HistoryTexts</name>
    <message>
        <source>All</source>
        <extracomment>Filter chip in the history window: everything that is not pinned. Very short (chip).</extracomment>
        <translation>Alle</translation>
    </message>
    <message>
        <source>Pinned</source>
        <extracomment>Filter chip in the history window: pinned items. Very short (chip).</extracomment>
        <translation>Angeheftet</translation>
    </message>
    <message>
        <source>Text</source>
        <extracomment>Filter chip in the history window: text items (not links). Very short (chip).</extracomment>
        <translation>Text</translation>
    </message>
    <message>
        <source>Links</source>
        <extracomment>Filter chip in the history window: web links. Very short (chip).</extracomment>
        <translation>Links</translation>
    </message>
    <message>
        <source>Images</source>
        <extracomment>Filter chip in the history window: images. Very short (chip).</extracomment>
        <translation>Bilder</translation>
    </message>
    <message>
        <source>Edit text</source>
        <extracomment>Dialog title for editing the text of a clipboard item.</extracomment>
        <translation>Text bearbeiten</translation>
    </message>
    <message>
        <source>Name</source>
        <extracomment>Dialog title for giving a clipboard item a short name (label).</extracomment>
        <translation>Name</translation>
    </message>
    <message>
        <source>A short name shown above the item, like “Office address”.</source>
        <extracomment>Message of the name dialog. Give a natural example of a name in your language, with your language&apos;s quotation marks.</extracomment>
        <translation>Ein kurzer Name, der über dem Eintrag steht, etwa „Büroadresse“.</translation>
    </message>
    <message>
        <source>This text is already in the history.</source>
        <extracomment>Message after editing an item into text that is already in the history.</extracomment>
        <translation>Dieser Text ist bereits im Verlauf.</translation>
    </message>
    <message>
        <source>New category</source>
        <extracomment>Placeholder or dialog title for creating a new category of clipboard items.</extracomment>
        <translation>Neue Kategorie</translation>
    </message>
    <message>
        <source>Rename category</source>
        <extracomment>Dialog title for renaming a category.</extracomment>
        <translation>Kategorie umbenennen</translation>
    </message>
    <message>
        <source>Delete the category “%1”?</source>
        <extracomment>Confirmation title. %1 is the category name chosen by the user. Use the quotation marks of your language.</extracomment>
        <translation>Kategorie „%1“ löschen?</translation>
    </message>
    <message>
        <source>Its items stay pinned, just without a category. With sync on, the category is deleted on your other devices too.</source>
        <extracomment>Confirmation text when deleting a category.</extracomment>
        <translation>Ihre Einträge bleiben angeheftet, nur ohne Kategorie. Bei eingeschalteter Synchronisierung wird die Kategorie auch auf Ihren anderen Geräten gelöscht.</translation>
    </message>
    <message>
        <source>Delete</source>
        <extracomment>Delete button or menu item (removes an item or a category). Short.</extracomment>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Clear the clipboard history?</source>
        <extracomment>Confirmation title before clearing the history.</extracomment>
        <translation>Verlauf der Zwischenablage leeren?</translation>
    </message>
    <message>
        <source>Pinned items and items in categories stay. With sync on, the history is cleared on your other devices too.</source>
        <extracomment>Confirmation text before clearing the history.</extracomment>
        <translation>Angeheftete Einträge und Einträge in Kategorien bleiben erhalten. Bei eingeschalteter Synchronisierung wird der Verlauf auch auf Ihren anderen Geräten geleert.</translation>
    </message>
    <message>
        <source>Clear</source>
        <extracomment>Destructive confirm button that clears the history. Short.</extracomment>
        <translation>Leeren</translation>
    </message>
</context>
<context>
    <name>RowTexts</name>
    <message>
        <source>Blank text</source>
        <extracomment>History window: shown in place of a copied text made only of spaces or line breaks.</extracomment>
        <translation>Leerer Text</translation>
    </message>
    <message>
        <source>+1 line</source>
        <extracomment>History window: a row shows the first lines of a text; this says one more line follows. Keep it short.</extracomment>
        <translation>+1 Zeile</translation>
    </message>
    <message numerus="yes">
        <source>+%n lines</source>
        <extracomment>History window: a row shows the first lines of a text; this says how many more lines follow. Keep it short.</extracomment>
        <translation>
            <numerusform>+%n Zeile</numerusform>
            <numerusform>+%n Zeilen</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>SyncServerTexts</name>
    <message>
        <source>Fill in the database address, user name and passphrase first.</source>
        <extracomment>Settings › Sync: answer of &quot;Test connection&quot; when fields are missing.</extracomment>
        <translation>Bitte zuerst Datenbankadresse, Benutzername und Passphrase eingeben.</translation>
    </message>
    <message>
        <source>The server cannot be reached: %1</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: %1 is the network error, e.g. &quot;Couldn&apos;t connect to server&quot;.</extracomment>
        <translation>Der Server ist nicht erreichbar: %1</translation>
    </message>
    <message>
        <source>The server does not accept this user name and password.</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;.</extracomment>
        <translation>Der Server akzeptiert diesen Benutzernamen und dieses Passwort nicht.</translation>
    </message>
    <message>
        <source>The server answered with an error: %1</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: %1 is the server&apos;s own reason, in English.</extracomment>
        <translation>Der Server hat mit einem Fehler geantwortet: %1</translation>
    </message>
    <message>
        <source>Signed in. The database does not exist yet; the first sync creates it if this user may (otherwise ask the server&apos;s administrator).</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: the login works but the database is missing.</extracomment>
        <translation>Angemeldet. Die Datenbank gibt es noch nicht; die erste Synchronisierung legt sie an, wenn dieser Benutzer das darf (sonst fragen Sie die Administration des Servers).</translation>
    </message>
    <message>
        <source>Signed in, but this user may not open the database.</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;.</extracomment>
        <translation>Angemeldet, aber dieser Benutzer darf die Datenbank nicht öffnen.</translation>
    </message>
    <message>
        <source>The database cannot be opened: %1</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: %1 is the server&apos;s own reason, in English.</extracomment>
        <translation>Die Datenbank lässt sich nicht öffnen: %1</translation>
    </message>
    <message>
        <source>The passphrase does not match the data on the sync server</source>
        <extracomment>Settings › Sync: the passphrase cannot open what the server holds.</extracomment>
        <translation>Die Passphrase passt nicht zu den Daten auf dem Sync-Server</translation>
    </message>
    <message>
        <source>Connected. The database is empty; the first sync sets it up.</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: everything works; nothing is synced yet.</extracomment>
        <translation>Verbunden. Die Datenbank ist leer; die erste Synchronisierung richtet sie ein.</translation>
    </message>
    <message>
        <source>Connected, and the passphrase opens the data on the server.</source>
        <extracomment>Settings › Sync, &quot;Test connection&quot;: everything works.</extracomment>
        <translation>Verbunden, und die Passphrase öffnet die Daten auf dem Server.</translation>
    </message>
    <message>
        <source>Enter the address of the sync database, e.g. https://couch.example.org:6984/zettly.</source>
        <extracomment>Settings › Sync: the database address field is empty.</extracomment>
        <translation>Geben Sie die Adresse der Sync-Datenbank ein, z.&#xa0;B. https://couch.example.org:6984/zettly.</translation>
    </message>
    <message>
        <source>This is not a web address; enter one like https://couch.example.org:6984/zettly.</source>
        <extracomment>Settings › Sync: what was typed is not a URL.</extracomment>
        <translation>Das ist keine Webadresse; geben Sie eine wie https://couch.example.org:6984/zettly ein.</translation>
    </message>
    <message>
        <source>The address must start with https://.</source>
        <translation>Die Adresse muss mit https:// beginnen.</translation>
    </message>
    <message>
        <source>The address lacks the server&apos;s name.</source>
        <translation>In der Adresse fehlt der Name des Servers.</translation>
    </message>
    <message>
        <source>Enter the user name and password in their own fields, not in the address.</source>
        <extracomment>Settings › Sync: the URL contains user:password@.</extracomment>
        <translation>Geben Sie Benutzername und Passwort in ihren eigenen Feldern ein, nicht in der Adresse.</translation>
    </message>
    <message>
        <source>The address must end with the database&apos;s name, without “?” or “#”.</source>
        <translation>Die Adresse muss mit dem Namen der Datenbank enden, ohne „?“ oder „#“.</translation>
    </message>
    <message>
        <source>Add the database&apos;s name to the address, e.g. https://couch.example.org:6984/zettly.</source>
        <extracomment>Settings › Sync: the URL names the server but not the database.</extracomment>
        <translation>Ergänzen Sie den Namen der Datenbank in der Adresse, z.&#xa0;B. https://couch.example.org:6984/zettly.</translation>
    </message>
    <message>
        <source>Use https:// for a server on another machine; plain http:// is only allowed for this computer (localhost).</source>
        <extracomment>Settings › Sync: http:// is only accepted for localhost.</extracomment>
        <translation>Verwenden Sie https:// für einen Server auf einem anderen Rechner; einfaches http:// ist nur für diesen Computer (localhost) erlaubt.</translation>
    </message>
    <message>
        <source>The passphrase was changed on the server, but Zettly could not store it on this computer. Check that your keyring is unlocked and enter the new passphrase in the Passphrase field.</source>
        <extracomment>Settings › Sync › Change Passphrase: the server was re-encrypted but the keyring refused the new passphrase.</extracomment>
        <translation>Die Passphrase wurde auf dem Server geändert, aber Zettly konnte sie auf diesem Computer nicht speichern. Prüfen Sie, ob Ihr Schlüsselbund entsperrt ist, und geben Sie die neue Passphrase im Feld „Passphrase“ ein.</translation>
    </message>
    <message>
        <source>The passphrase was changed on another device. Enter the new passphrase in the Sync settings.</source>
        <extracomment>Settings › Sync: another device changed the passphrase; this one has the old one.</extracomment>
        <translation>Die Passphrase wurde auf einem anderen Gerät geändert. Geben Sie die neue Passphrase in den Sync-Einstellungen ein.</translation>
    </message>
    <message>
        <source>The set-up record on the sync server was changed by something other than Zettly, so the data there cannot be trusted. Delete the cloud copy in the Sync settings to start it afresh; the history on your devices stays.</source>
        <extracomment>Settings › Sync: the server&apos;s set-up record fails its check under this device&apos;s key.</extracomment>
        <translation>Der Einrichtungseintrag auf dem Sync-Server wurde nicht von Zettly geändert; den Daten dort ist nicht zu trauen. Löschen Sie die Cloud-Kopie in den Sync-Einstellungen, um neu zu beginnen; der Verlauf auf Ihren Geräten bleibt erhalten.</translation>
    </message>
</context>
<context>
    <name>zettly::AboutPage</name>
    <message>
        <source>Version %1</source>
        <extracomment>Settings › About: the version of the app. %1 is a version number such as 1.2.0.</extracomment>
        <translation>Version %1</translation>
    </message>
    <message>
        <source>Keeps what you copy, so you can find it and paste it again from a shortcut.</source>
        <extracomment>Settings › About: one line saying what the app does.</extracomment>
        <translation>Bewahrt auf, was Sie kopieren, damit Sie es wiederfinden und per Tastenkürzel erneut einfügen können.</translation>
    </message>
    <message>
        <source>Website</source>
        <extracomment>Settings › About: link to the project&apos;s web site. Short.</extracomment>
        <translation>Website</translation>
    </message>
    <message>
        <source>Source code</source>
        <extracomment>Settings › About: link to the app&apos;s source code. Short.</extracomment>
        <translation>Quelltext</translation>
    </message>
    <message>
        <source>Report a problem</source>
        <extracomment>Settings › About: link to where problems are reported. Short.</extracomment>
        <translation>Problem melden</translation>
    </message>
    <message>
        <source>Zettly is built with these libraries:</source>
        <extracomment>Settings › About: heading above the list of libraries Zettly uses and their licences.</extracomment>
        <translation>Zettly verwendet diese Bibliotheken:</translation>
    </message>
    <message>
        <source>GoogleTest (BSD-3-Clause) is used only to test Zettly and is not part of it.</source>
        <extracomment>Settings › About, at the end of the licence list: GoogleTest is only used by the developers&apos; tests. Keep the name &quot;GoogleTest&quot;.</extracomment>
        <translation>GoogleTest (BSD-3-Clause) dient nur zum Testen von Zettly und ist nicht Teil davon.</translation>
    </message>
    <message>
        <source>Check for updates automatically</source>
        <extracomment>Settings › About switch: look for a newer version once a day in the background.</extracomment>
        <translation>Automatisch nach Updates suchen</translation>
    </message>
    <message>
        <source>Check Now</source>
        <extracomment>Settings › About button: look for a newer version now.</extracomment>
        <translation>Jetzt prüfen</translation>
    </message>
</context>
<context>
    <name>zettly::AppDelegate</name>
    <message>
        <source>Zettly is paused. Alt-click to resume.</source>
        <extracomment>Tooltip of the tray icon while saving is paused.</extracomment>
        <translation>Zettly ist angehalten. Alt+Klick setzt fort.</translation>
    </message>
    <message>
        <source>Software Update</source>
        <extracomment>Title of the dialog that answers &quot;Check for Updates…&quot;.</extracomment>
        <translation>Softwareaktualisierung</translation>
    </message>
    <message>
        <source>Zettly %1 is available.</source>
        <extracomment>Update dialog. %1 is the new version number, e.g. 1.0.2.
----------
Tooltip of the tray icon when a new version was found. %1 is the version number, e.g. 1.0.2.</extracomment>
        <translation>Zettly %1 ist verfügbar.</translation>
    </message>
    <message>
        <source>You have version %1.</source>
        <extracomment>Update dialog: the version the user runs now. %1 is a version number.</extracomment>
        <translation>Installiert ist Version %1.</translation>
    </message>
    <message>
        <source>Download</source>
        <extracomment>Update dialog button that opens the download in the browser.</extracomment>
        <translation>Herunterladen</translation>
    </message>
    <message>
        <source>Release Notes</source>
        <extracomment>Update dialog button that opens the release notes in the browser.</extracomment>
        <translation>Versionshinweise</translation>
    </message>
    <message>
        <source>Later</source>
        <extracomment>Update dialog button that closes it without downloading.</extracomment>
        <translation>Später</translation>
    </message>
    <message>
        <source>You’re up to date.</source>
        <extracomment>Update dialog when no newer version exists.</extracomment>
        <translation>Sie sind auf dem neuesten Stand.</translation>
    </message>
    <message>
        <source>Zettly %1 is the newest version.</source>
        <extracomment>Update dialog. %1 is the version number the user runs.</extracomment>
        <translation>Zettly %1 ist die neueste Version.</translation>
    </message>
    <message>
        <source>Zettly could not check for updates.</source>
        <extracomment>Update dialog when the update feed could not be read.</extracomment>
        <translation>Zettly konnte nicht nach Updates suchen.</translation>
    </message>
    <message>
        <source>Update checks are not set up for this copy of Zettly.</source>
        <extracomment>Update dialog when this build has no update feed (e.g. installed from a distribution, which brings updates itself).</extracomment>
        <translation>Für diese Zettly-Installation ist keine Suche nach Updates eingerichtet.</translation>
    </message>
    <message>
        <source>Updates come with your system&apos;s software updates.</source>
        <extracomment>Update dialog: where updates come from instead.</extracomment>
        <translation>Updates kommen mit den Softwareaktualisierungen Ihres Systems.</translation>
    </message>
    <message>
        <source>%1 is used by another application; choose another shortcut in Settings.</source>
        <extracomment>Tray tooltip line when the shortcut could not be had. %1 is the shortcut, e.g. Alt+V.</extracomment>
        <translation>%1 wird von einer anderen Anwendung verwendet; wählen Sie in den Einstellungen ein anderes Tastenkürzel.</translation>
    </message>
    <message>
        <source>Zettly cannot see your copies</source>
        <extracomment>Title of the notification shown at start when Zettly&apos;s GNOME Shell extension is not running.</extracomment>
        <translation>Zettly sieht Ihre Kopien nicht</translation>
    </message>
    <message>
        <source>Zettly</source>
        <extracomment>Title of the message when turning on Zettly&apos;s GNOME Shell extension (or opening the Extensions app) failed.</extracomment>
        <translation>Zettly</translation>
    </message>
    <message>
        <source>That did not work: %1</source>
        <extracomment>Message when turning on Zettly&apos;s GNOME Shell extension or opening the Extensions app failed. %1 is the reason, in English.</extracomment>
        <translation>Das hat nicht geklappt: %1</translation>
    </message>
    <message>
        <source>Show File</source>
        <extracomment>Button of the notification about a damaged history file: opens the folder that holds it.</extracomment>
        <translation>Datei zeigen</translation>
    </message>
</context>
<context>
    <name>zettly::AppcastUpdater</name>
    <message>
        <source>The update feed address is not valid: %1</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the configured update feed address is unusable. The placeholder is the address.</extracomment>
        <translation>Die Adresse des Update-Feeds ist ungültig: %1</translation>
    </message>
    <message>
        <source>The update feed must be reached over https: %1</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the update feed (or a redirect) uses plain http. The placeholder is the address.</extracomment>
        <translation>Der Update-Feed muss über https erreichbar sein: %1</translation>
    </message>
    <message>
        <source>The update feed is larger than 1 MB.</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the server sent far more than an update feed.</extracomment>
        <translation>Der Update-Feed ist größer als 1 MB.</translation>
    </message>
    <message>
        <source>The update feed is not valid XML (line %1: %2).</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the update feed could not be read. The placeholders are a line number and the XML parser&apos;s own message.</extracomment>
        <translation>Der Update-Feed ist kein gültiges XML (Zeile %1: %2).</translation>
    </message>
    <message>
        <source>The update feed lists no release.</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the update feed names no version that applies.</extracomment>
        <translation>Der Update-Feed nennt keine Version.</translation>
    </message>
    <message>
        <source>The update server did not answer in time.</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the update server stopped answering.</extracomment>
        <translation>Der Update-Server hat nicht rechtzeitig geantwortet.</translation>
    </message>
    <message>
        <source>Could not reach the update server: %1</source>
        <extracomment>Result of &quot;Check for Updates…&quot;: the placeholder is the network error, e.g. &quot;Connection refused&quot;.</extracomment>
        <translation>Der Update-Server ist nicht erreichbar: %1</translation>
    </message>
</context>
<context>
    <name>zettly::CategoriesPage</name>
    <message>
        <source>There is already a category called “%1”.</source>
        <extracomment>Settings › Categories: message when a new or renamed category would get a name that another category has. %1 is that category&apos;s name. Use the quotation marks of your language.</extracomment>
        <translation>Es gibt bereits eine Kategorie namens „%1“.</translation>
    </message>
    <message>
        <source>Name</source>
        <extracomment>Settings › Categories: column with the category names.</extracomment>
        <translation>Name</translation>
    </message>
    <message>
        <source>Items</source>
        <extracomment>Settings › Categories: column with the number of items in each category.</extracomment>
        <translation>Einträge</translation>
    </message>
    <message>
        <source>No categories yet. Categories keep items you need again and again, like addresses or replies, together.</source>
        <extracomment>Settings › Categories: shown when the user has no categories yet.</extracomment>
        <translation>Noch keine Kategorien. Kategorien halten Einträge zusammen, die Sie immer wieder brauchen, etwa Adressen oder Antworten.</translation>
    </message>
    <message>
        <source>Drag a category to change the order; the filters of the history window follow it. Double-click a name to rename it.</source>
        <extracomment>Settings › Categories: hint under the list of categories.</extracomment>
        <translation>Ziehen Sie eine Kategorie, um die Reihenfolge zu ändern; die Filter des Verlaufsfensters folgen ihr. Doppelklicken Sie auf einen Namen, um ihn umzubenennen.</translation>
    </message>
    <message>
        <source>New Category…</source>
        <extracomment>Settings › Categories: button that creates a new category (opens a name dialog).</extracomment>
        <translation>Neue Kategorie…</translation>
    </message>
    <message>
        <source>Rename</source>
        <extracomment>Settings › Categories: button that starts renaming the selected category.</extracomment>
        <translation>Umbenennen</translation>
    </message>
    <message>
        <source>Delete…</source>
        <extracomment>Settings › Categories: button that deletes the selected category (asks first).</extracomment>
        <translation>Löschen…</translation>
    </message>
    <message numerus="yes">
        <source>%n items</source>
        <extracomment>Settings › Categories: number of items in a category.</extracomment>
        <translation>
            <numerusform>%n Eintrag</numerusform>
            <numerusform>%n Einträge</numerusform>
        </translation>
    </message>
    <message>
        <source>The category could not be saved.</source>
        <extracomment>Settings › Categories: message when a new category could not be stored (e.g. the database cannot be opened).</extracomment>
        <translation>Die Kategorie konnte nicht gespeichert werden.</translation>
    </message>
</context>
<context>
    <name>zettly::ChipBar</name>
    <message>
        <source>Rename…</source>
        <extracomment>Context menu of a category chip: rename the category.</extracomment>
        <translation>Umbenennen…</translation>
    </message>
    <message>
        <source>Delete</source>
        <extracomment>Delete button or menu item (removes an item or a category). Short.</extracomment>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>New category</source>
        <extracomment>Placeholder or dialog title for creating a new category of clipboard items.</extracomment>
        <translation>Neue Kategorie</translation>
    </message>
    <message>
        <source>More chips</source>
        <extracomment>Button at the end of the filter chips when not all fit: lists the chips out of sight.</extracomment>
        <translation>Weitere Filter</translation>
    </message>
</context>
<context>
    <name>zettly::GeneralPage</name>
    <message>
        <source>Open history with:</source>
        <extracomment>Settings › General: label before the button that records the shortcut opening the history.</extracomment>
        <translation>Verlauf öffnen mit:</translation>
    </message>
    <message>
        <source>At the pointer</source>
        <extracomment>Settings › General › where the history window opens: near the mouse pointer.</extracomment>
        <translation>Am Mauszeiger</translation>
    </message>
    <message>
        <source>In the center of the screen</source>
        <extracomment>Settings › General › where the history window opens: centred on the screen.</extracomment>
        <translation>In der Bildschirmmitte</translation>
    </message>
    <message>
        <source>Show window:</source>
        <extracomment>Settings › General: label before the picker of where the history window opens.</extracomment>
        <translation>Fenster anzeigen:</translation>
    </message>
    <message>
        <source>Show preview:</source>
        <extracomment>Settings › General: label before the picker of when the full preview of an item opens.</extracomment>
        <translation>Vorschau anzeigen:</translation>
    </message>
    <message>
        <source>Paste right away</source>
        <extracomment>Settings › General switch: choosing an item in the history also pastes it into the app that was in front.</extracomment>
        <translation>Sofort einfügen</translation>
    </message>
    <message>
        <source>Launch at login</source>
        <extracomment>Settings › General switch: start Zettly when the user logs in to the desktop.</extracomment>
        <translation>Bei der Anmeldung starten</translation>
    </message>
    <message>
        <source>This X server lacks the XTEST extension, which Zettly needs to press Ctrl+V for you, so the item only goes to the clipboard. Enable XTEST in the X server&apos;s configuration (or install the package that provides it) and start Zettly again.</source>
        <extracomment>Settings › General, under &quot;Paste right away&quot; when the X server cannot simulate key presses. XTEST is the name of the X server extension; keep it.</extracomment>
        <translation>Diesem X-Server fehlt die Erweiterung XTEST, mit der Zettly für Sie Strg+V drückt, daher landet der Eintrag nur in der Zwischenablage. Aktivieren Sie XTEST in der Konfiguration des X-Servers (oder installieren Sie das Paket, das sie bereitstellt) und starten Sie Zettly neu.</translation>
    </message>
    <message>
        <source>After %1 s</source>
        <extracomment>Settings › General › preview picker: the preview opens once the selection has rested this long. %1 is a number of seconds, such as 0.5. &quot;s&quot; is seconds.</extracomment>
        <translation>Nach %1 s</translation>
    </message>
    <message>
        <source>Only with Super+Space or Ctrl+Y</source>
        <extracomment>Settings › General › preview picker: the preview opens only when the user presses one of these shortcuts in the history window.</extracomment>
        <translation>Nur mit Super+Leertaste oder Strg+Y</translation>
    </message>
    <message>
        <source>Zettly could not be set to start at login.</source>
        <extracomment>Settings › General, under &quot;Launch at login&quot; when the login entry could not be written. The system&apos;s reason follows on the next line.</extracomment>
        <translation>Zettly konnte nicht für den Start bei der Anmeldung eingerichtet werden.</translation>
    </message>
    <message>
        <source>Zettly could not be kept from starting at login.</source>
        <extracomment>Settings › General, under &quot;Launch at login&quot; when the login entry could not be removed. The system&apos;s reason follows on the next line.</extracomment>
        <translation>Der Start von Zettly bei der Anmeldung konnte nicht abgeschaltet werden.</translation>
    </message>
    <message>
        <source>Choosing an item also pastes it into the window you were working in. Alt+Return in the history does the other.</source>
        <extracomment>Settings › General, under &quot;Paste right away&quot;: what the switch does, and the key that does the other thing for one pick.</extracomment>
        <translation>Beim Auswählen wird der Eintrag auch gleich in das Fenster eingefügt, in dem Sie gearbeitet haben. Alt+Eingabetaste im Verlauf bewirkt jeweils das andere.</translation>
    </message>
    <message>
        <source>Some features are not available in this session:</source>
        <extracomment>Settings › General, at the top in a session where some things cannot work: the heading of the list of what does not.</extracomment>
        <translation>Einige Funktionen stehen in dieser Sitzung nicht zur Verfügung:</translation>
    </message>
    <message>
        <source>Paste keys:</source>
        <extracomment>Settings › General: label before the list of applications with keys of their own for pasting.</extracomment>
        <translation>Einfügetasten:</translation>
    </message>
    <message>
        <source>In this session Zettly cannot type into other apps&apos; windows, so the item only goes to the clipboard. Paste it yourself with Ctrl+V.</source>
        <extracomment>Settings › General, under &quot;Paste right away&quot; in a session where Zettly cannot type into other applications.</extracomment>
        <translation>In dieser Sitzung kann Zettly nicht in die Fenster anderer Anwendungen tippen, daher landet der Eintrag nur in der Zwischenablage. Fügen Sie ihn selbst mit Strg+V ein.</translation>
    </message>
    <message>
        <source>Zettly cannot have a shortcut of its own, so the history opens with one you set up in your desktop&apos;s keyboard settings.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Zettly kann kein eigenes Tastenkürzel haben; der Verlauf öffnet sich mit einem, das Sie in den Tastatureinstellungen Ihrer Arbeitsumgebung einrichten.</translation>
    </message>
    <message>
        <source>Zettly cannot type into other applications, so a picked item is only copied and you paste it yourself.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Zettly kann nicht in andere Anwendungen tippen, daher wird ein ausgewählter Eintrag nur kopiert und Sie fügen ihn selbst ein.</translation>
    </message>
    <message>
        <source>The X server lacks the XTEST extension, so a picked item is only copied, not pasted.</source>
        <extracomment>Settings › General, list of what this session cannot do. XTEST is the name of an X server extension; keep it.</extracomment>
        <translation>Dem X-Server fehlt die Erweiterung XTEST, daher wird ein ausgewählter Eintrag nur kopiert, nicht eingefügt.</translation>
    </message>
    <message>
        <source>Zettly can read the clipboard only while one of its windows is active, so what you copy in other applications may not be saved.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Zettly kann die Zwischenablage nur lesen, solange eines seiner Fenster aktiv ist; was Sie in anderen Anwendungen kopieren, wird daher womöglich nicht gespeichert.</translation>
    </message>
    <message>
        <source>Zettly cannot tell which application is in front, so ignored applications are not recognised; text patterns still apply.</source>
        <extracomment>Settings › General, list of what this session cannot do. Refers to the list in Settings › Ignore.</extracomment>
        <translation>Zettly weiß nicht, welche Anwendung im Vordergrund ist, daher werden ignorierte Anwendungen nicht erkannt; Textmuster gelten weiterhin.</translation>
    </message>
    <message>
        <source>Zettly cannot give the keyboard back to the window you were working in, so a picked item may not be pasted there.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Zettly kann die Tastatur nicht an das Fenster zurückgeben, in dem Sie gearbeitet haben, daher wird ein ausgewählter Eintrag dort womöglich nicht eingefügt.</translation>
    </message>
    <message>
        <source>Zettly runs through XWayland, so its shortcut, saving copies and pasting work with X11 applications only.</source>
        <extracomment>Settings › General, list of what this session cannot do. XWayland and X11 are names; keep them.</extracomment>
        <translation>Zettly läuft über XWayland, daher funktionieren Tastenkürzel, das Speichern von Kopien und das Einfügen nur mit X11-Anwendungen.</translation>
    </message>
    <message>
        <source>%1 is used by another application. Choose another shortcut.</source>
        <extracomment>Settings › General, under the shortcut when another application holds it. %1 is the shortcut, e.g. Alt+V.</extracomment>
        <translation>%1 wird von einer anderen Anwendung verwendet. Wählen Sie ein anderes Tastenkürzel.</translation>
    </message>
    <message>
        <source>This desktop gives applications no shortcuts of their own. To open the history with a key, add a shortcut for this command in your desktop&apos;s keyboard settings:</source>
        <extracomment>Settings › General, under the shortcut in a session where applications cannot have shortcuts; the command to bind follows on the next line.</extracomment>
        <translation>Diese Arbeitsumgebung erlaubt Anwendungen keine eigenen Tastenkürzel. Um den Verlauf per Taste zu öffnen, legen Sie in den Tastatureinstellungen Ihrer Arbeitsumgebung ein Tastenkürzel für diesen Befehl an:</translation>
    </message>
    <message>
        <source>%1 is not on this keyboard. Choose another shortcut.</source>
        <extracomment>Settings › General, under the shortcut when it names a key this keyboard lacks (a shortcut stored on another computer). %1 is the shortcut.</extracomment>
        <translation>%1 gibt es auf dieser Tastatur nicht. Wählen Sie ein anderes Tastenkürzel.</translation>
    </message>
    <message>
        <source>The shortcut %1 could not be set.</source>
        <extracomment>Settings › General, under the shortcut when the desktop refused it without saying why. %1 is the shortcut, e.g. Alt+V.</extracomment>
        <translation>Das Tastenkürzel %1 konnte nicht eingerichtet werden.</translation>
    </message>
    <message>
        <source>The shortcut %1 could not be set: %2</source>
        <extracomment>Settings › General, under the shortcut when the desktop refused it. %1 is the shortcut, e.g. Alt+V; %2 is the system&apos;s reason, in English.</extracomment>
        <translation>Das Tastenkürzel %1 konnte nicht eingerichtet werden: %2</translation>
    </message>
    <message>
        <source>Zettly proposes this key to your desktop, which may choose another.</source>
        <extracomment>Settings › General, under the shortcut where the desktop decides which key opens the history: the recorded key is only a proposal.</extracomment>
        <translation>Zettly schlägt diese Taste Ihrem Desktop vor; er kann eine andere wählen.</translation>
    </message>
    <message>
        <source>Change in System Settings…</source>
        <extracomment>Settings › General, under the shortcut where the desktop decides which key opens the history: opens the desktop&apos;s own shortcut settings.</extracomment>
        <translation>In den Systemeinstellungen ändern …</translation>
    </message>
    <message>
        <source>Copy</source>
        <extracomment>Settings › General: copies the command or configuration line shown beside it.</extracomment>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>This desktop decides where the history opens, so this choice has no effect here. It is kept for sessions where Zettly can place the window.</source>
        <extracomment>Settings › General, under the greyed-out &quot;Show window:&quot; picker on a desktop that places windows itself (Wayland).</extracomment>
        <translation>Dieser Desktop bestimmt, wo sich der Verlauf öffnet, daher wirkt diese Auswahl hier nicht. Sie bleibt für Sitzungen erhalten, in denen Zettly das Fenster platzieren kann.</translation>
    </message>
    <message>
        <source>This desktop offers applications no way to press keys (no virtual keyboard, no KWin fake input, no remote desktop portal), so the item only goes to the clipboard. Paste it yourself with Ctrl+V.</source>
        <extracomment>Settings › General, under &quot;Paste right away&quot; on a Wayland desktop that lets no application press keys. KWin is a name; keep it.</extracomment>
        <translation>Dieser Desktop bietet Anwendungen keine Möglichkeit, Tasten zu drücken (keine virtuelle Tastatur, kein „fake input“ von KWin, kein Fernsteuerungs-Portal), daher kommt der Eintrag nur in die Zwischenablage. Fügen Sie ihn selbst mit Strg+V ein.</translation>
    </message>
    <message>
        <source>This desktop does not let applications place their own windows, so the history opens where the desktop puts it, usually in the middle of the screen.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Dieser Desktop lässt Anwendungen ihre Fenster nicht selbst platzieren, daher öffnet sich der Verlauf dort, wo der Desktop ihn hinlegt, meist in der Bildschirmmitte.</translation>
    </message>
    <message>
        <source>This desktop offers applications no way to press keys, so a picked item is only copied and you paste it yourself.</source>
        <extracomment>Settings › General, list of what this session cannot do.</extracomment>
        <translation>Dieser Desktop bietet Anwendungen keine Möglichkeit, Tasten zu drücken, daher wird ein gewählter Eintrag nur kopiert und Sie fügen ihn selbst ein.</translation>
    </message>
    <message>
        <source>Your desktop has no key for opening the history yet.</source>
        <extracomment>Settings › General, under the shortcut: the desktop keeps Zettly&apos;s shortcut but the user gave it no key.</extracomment>
        <translation>Ihr Desktop hat noch keine Taste zum Öffnen des Verlaufs.</translation>
    </message>
    <message>
        <source>Your desktop opens the history with %1.</source>
        <extracomment>Settings › General, under the shortcut: the key the desktop bound, in the desktop&apos;s words, e.g. &quot;Meta+Shift+V&quot;.</extracomment>
        <translation>Ihr Desktop öffnet den Verlauf mit %1.</translation>
    </message>
    <message>
        <source>Your compositor gives applications no shortcuts of their own. To open the history with a key, add this to %1 and reload the configuration:</source>
        <extracomment>Settings › General, under the shortcut on a compositor that binds keys only in its configuration file; the line to add follows. %1 is the file, e.g. ~/.config/sway/config.</extracomment>
        <translation>Ihr Compositor gibt Anwendungen keine eigenen Tastenkürzel. Um den Verlauf mit einer Taste zu öffnen, fügen Sie dies in %1 ein und laden Sie die Konfiguration neu:</translation>
    </message>
    <message>
        <source>Your compositor gives applications no shortcuts of their own. To open the history with a key, add this to the %2 section of %1 and reload the configuration:</source>
        <extracomment>Settings › General, as above for a line that belongs in one part of the file. %1 is the file, e.g. ~/.config/niri/config.kdl; %2 names the part as the file writes it, e.g. &quot;binds { }&quot; or &quot;[command]&quot;.</extracomment>
        <translation>Ihr Compositor gibt Anwendungen keine eigenen Tastenkürzel. Um den Verlauf mit einer Taste zu öffnen, fügen Sie dies im Abschnitt %2 von %1 ein und laden Sie die Konfiguration neu:</translation>
    </message>
    <message>
        <source>Zettly&apos;s GNOME Shell extension is turned off. Without it Zettly sees only what you copy while its own window is open, and cannot paste for you.</source>
        <extracomment>Settings › General and the tray, on GNOME when Zettly&apos;s GNOME Shell extension is installed but turned off. A button to turn it on follows.</extracomment>
        <translation>Die GNOME-Shell-Erweiterung von Zettly ist ausgeschaltet. Ohne sie sieht Zettly nur, was Sie kopieren, während sein eigenes Fenster offen ist, und kann nicht für Sie einfügen.</translation>
    </message>
    <message>
        <source>GNOME Shell has not loaded Zettly&apos;s extension, which Zettly needs to see what you copy and to paste for you. After installing Zettly, log out and back in once.</source>
        <extracomment>Settings › General and the tray, on GNOME when GNOME Shell has not loaded Zettly&apos;s extension.</extracomment>
        <translation>Die GNOME Shell hat die Erweiterung von Zettly nicht geladen, die Zettly braucht, um Ihre Kopien zu sehen und für Sie einzufügen. Melden Sie sich nach der Installation von Zettly einmal ab und wieder an.</translation>
    </message>
    <message>
        <source>GNOME Shell could not run Zettly&apos;s extension, which Zettly needs to see what you copy and to paste for you. The Extensions app shows why.</source>
        <extracomment>Settings › General and the tray, on GNOME when Zettly&apos;s GNOME Shell extension could not run.</extracomment>
        <translation>Die GNOME Shell konnte die Erweiterung von Zettly nicht ausführen, die Zettly braucht, um Ihre Kopien zu sehen und für Sie einzufügen. Die App „Erweiterungen“ zeigt, warum.</translation>
    </message>
    <message>
        <source>Turn On Zettly&apos;s GNOME Extension</source>
        <extracomment>Settings › General and the tray menu: button that turns on Zettly&apos;s GNOME Shell extension.</extracomment>
        <translation>GNOME-Erweiterung von Zettly einschalten</translation>
    </message>
    <message>
        <source>Open Extensions…</source>
        <extracomment>Settings › General and the tray menu: button that opens GNOME&apos;s Extensions app.</extracomment>
        <translation>„Erweiterungen“ öffnen…</translation>
    </message>
</context>
<context>
    <name>zettly::HistoryList</name>
    <message>
        <source>Copy something and it shows up here.</source>
        <extracomment>History window: shown when the history is still empty.</extracomment>
        <translation>Kopieren Sie etwas, dann erscheint es hier.</translation>
    </message>
    <message>
        <source>Nothing found.</source>
        <extracomment>History window: shown when the search or filter finds nothing.</extracomment>
        <translation>Nichts gefunden.</translation>
    </message>
    <message>
        <source>Searching…</source>
        <extracomment>History window: shown while a search still reads the older history and found nothing yet.</extracomment>
        <translation>Suche läuft…</translation>
    </message>
</context>
<context>
    <name>zettly::IgnorePage</name>
    <message>
        <source>A “[” is not closed.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid.</extracomment>
        <translation>Ein „[“ wird nicht geschlossen.</translation>
    </message>
    <message>
        <source>The parentheses do not match.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid.</extracomment>
        <translation>Die runden Klammern passen nicht zusammen.</translation>
    </message>
    <message>
        <source>Syntax error, for example a repeat with nothing to repeat.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid (e.g. &quot;*&quot; with nothing before it).</extracomment>
        <translation>Syntaxfehler, etwa eine Wiederholung ohne etwas davor.</translation>
    </message>
    <message>
        <source>Unknown escape sequence after a backslash.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid.</extracomment>
        <translation>Unbekannte Escape-Sequenz nach einem Backslash.</translation>
    </message>
    <message>
        <source>Unknown or malformed \p{…} property.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid; p{…} names a Unicode property.</extracomment>
        <translation>Unbekannte oder fehlerhafte Eigenschaft \p{…}.</translation>
    </message>
    <message>
        <source>The repeat count in {n,m} is not valid.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid; {n,m} is a repeat count.</extracomment>
        <translation>Die Anzahl der Wiederholungen in {n,m} ist ungültig.</translation>
    </message>
    <message>
        <source>A range in […] is not valid.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid, e.g. [z-a] or an unfinished [a-.</extracomment>
        <translation>Ein Bereich in […] ist ungültig.</translation>
    </message>
    <message>
        <source>A back reference names a group that does not exist.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid, e.g. <byte value="x2"/> with one group.</extracomment>
        <translation>Eine Rückreferenz verweist auf eine Gruppe, die es nicht gibt.</translation>
    </message>
    <message>
        <source>A look-behind must have a limited length.</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid.</extracomment>
        <translation>Ein Lookbehind muss eine begrenzte Länge haben.</translation>
    </message>
    <message>
        <source>Unknown flag in (?…).</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid, e.g. (?z).</extracomment>
        <translation>Unbekannte Option in (?…).</translation>
    </message>
    <message>
        <source>Not a valid regular expression (%1).</source>
        <extracomment>Settings › Ignore: why a regular expression is invalid, for a rarer error. %1 is the regular-expression library&apos;s own error name (not translated).</extracomment>
        <translation>Kein gültiger regulärer Ausdruck (%1).</translation>
    </message>
    <message>
        <source>Add</source>
        <extracomment>Settings › Ignore: button that adds the typed application id or pattern to its list.</extracomment>
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>Remove</source>
        <extracomment>Settings › Ignore: button that removes the selected applications or pattern.</extracomment>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>Applications</source>
        <extracomment>Settings › Ignore: title of the section with the ignored applications.</extracomment>
        <translation>Anwendungen</translation>
    </message>
    <message>
        <source>Nothing you copy while one of these applications is in front is saved.</source>
        <extracomment>Settings › Ignore: explanation of the ignored applications.</extracomment>
        <translation>Was Sie kopieren, während eine dieser Anwendungen im Vordergrund ist, wird nicht gespeichert.</translation>
    </message>
    <message>
        <source>These are the defaults: password managers Zettly knows. Adding or removing one makes the list your own.</source>
        <extracomment>Settings › Ignore: shown under the application list while the user has not changed it.</extracomment>
        <translation>Dies sind die Vorgaben: Passwortmanager, die Zettly kennt. Sobald Sie einen hinzufügen oder entfernen, wird es Ihre eigene Liste.</translation>
    </message>
    <message>
        <source>Application id, like org.keepassxc.KeePassXC</source>
        <extracomment>Settings › Ignore: placeholder of the field for an application id to ignore.</extracomment>
        <translation>Anwendungskennung, etwa org.keepassxc.KeePassXC</translation>
    </message>
    <message>
        <source>Restore Defaults</source>
        <extracomment>Settings › Ignore: button that goes back to the built-in list of ignored applications.</extracomment>
        <translation>Vorgaben wiederherstellen</translation>
    </message>
    <message>
        <source>Text Patterns</source>
        <extracomment>Settings › Ignore: title of the section with the ignored text patterns.</extracomment>
        <translation>Textmuster</translation>
    </message>
    <message>
        <source>A copied text in which one of these regular expressions finds a match is not saved. Upper and lower case count.</source>
        <extracomment>Settings › Ignore: explanation of the patterns. &quot;Regular expressions&quot; is the technical term; matching is case-sensitive and a match anywhere in the text counts.</extracomment>
        <translation>Ein kopierter Text, in dem einer dieser regulären Ausdrücke einen Treffer findet, wird nicht gespeichert. Groß- und Kleinschreibung zählen.</translation>
    </message>
    <message>
        <source>Regular expression, like ^\d{6}$</source>
        <extracomment>Settings › Ignore: placeholder of the field for a regular expression; the example matches six-digit codes.</extracomment>
        <translation>Regulärer Ausdruck, etwa ^\d{6}$</translation>
    </message>
    <message>
        <source>Cancel</source>
        <extracomment>Settings › Ignore: button that stops editing a pattern without saving it.</extracomment>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Edit</source>
        <extracomment>Settings › Ignore: button that puts the selected pattern into the field for editing.</extracomment>
        <translation>Bearbeiten</translation>
    </message>
    <message>
        <source>An empty pattern would match every text you copy.</source>
        <extracomment>Settings › Ignore: why an empty pattern cannot be stored.</extracomment>
        <translation>Ein leeres Muster würde auf jeden kopierten Text passen.</translation>
    </message>
    <message>
        <source>%1 Found at character %2.</source>
        <extracomment>Settings › Ignore: a reason why a pattern is invalid (%1, a full sentence) and where in the pattern the problem was found (%2, counted in characters from 1).</extracomment>
        <translation>%1 Gefunden bei Zeichen %2.</translation>
    </message>
    <message>
        <source>%1 Found in line %2 at character %3.</source>
        <extracomment>Settings › Ignore: a reason why a pattern is invalid (%1, a full sentence) and where the problem was found: line %2, character %3.</extracomment>
        <translation>%1 Gefunden in Zeile %2 bei Zeichen %3.</translation>
    </message>
    <message>
        <source>This pattern is already in the list.</source>
        <extracomment>Settings › Ignore: shown under the pattern field when the typed pattern is already in the list.</extracomment>
        <translation>Dieses Muster steht bereits in der Liste.</translation>
    </message>
    <message>
        <source>Save</source>
        <extracomment>Settings › Ignore: button that stores the edited pattern in place of the old one.</extracomment>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>In this session Zettly cannot tell which application is in front, so the applications in this list are not recognised. Text patterns, and the marks password managers put on what they copy, still keep copies out.</source>
        <extracomment>Settings › Ignore, above the application list in a session where Zettly cannot tell which application is in front. The marks are hints password managers add to what they copy.</extracomment>
        <translation>In dieser Sitzung weiß Zettly nicht, welche Anwendung im Vordergrund ist, daher werden die Anwendungen in dieser Liste nicht erkannt. Textmuster und die Markierungen, die Passwortmanager an ihre Kopien anbringen, halten Kopien weiterhin aus dem Verlauf fern.</translation>
    </message>
</context>
<context>
    <name>zettly::PassphraseDialog</name>
    <message>
        <source>Change Passphrase</source>
        <extracomment>Title of the dialog that changes the sync passphrase (Settings › Sync).
----------
Change Passphrase dialog: the button that changes it.</extracomment>
        <translation>Passphrase ändern</translation>
    </message>
    <message>
        <source>The copy on the sync server is encrypted again with the new passphrase: it is deleted there, and this computer uploads its history again. Your other devices stop syncing and say that the passphrase was changed until you enter the new one in their Sync settings. The history on every device stays.</source>
        <extracomment>Change Passphrase dialog: what changing the passphrase does.</extracomment>
        <translation>Die Kopie auf dem Sync-Server wird mit der neuen Passphrase neu verschlüsselt: Sie wird dort gelöscht, und dieser Computer lädt seinen Verlauf erneut hoch. Ihre anderen Geräte synchronisieren nicht mehr und melden die geänderte Passphrase, bis Sie dort die neue eingeben. Der Verlauf auf jedem Gerät bleibt erhalten.</translation>
    </message>
    <message>
        <source>New passphrase:</source>
        <extracomment>Change Passphrase dialog: label of the field for the new passphrase.</extracomment>
        <translation>Neue Passphrase:</translation>
    </message>
    <message>
        <source>Repeat it:</source>
        <extracomment>Change Passphrase dialog: label of the field where the new passphrase is typed again.</extracomment>
        <translation>Wiederholen:</translation>
    </message>
    <message>
        <source>Enter the new passphrase.</source>
        <extracomment>Change Passphrase dialog: the new passphrase field is empty.</extracomment>
        <translation>Geben Sie die neue Passphrase ein.</translation>
    </message>
    <message>
        <source>This passphrase is too easy to guess. %1</source>
        <extracomment>Change Passphrase dialog: the new passphrase is refused; %1 says why, e.g. &quot;It is a run of neighbouring keys.&quot;</extracomment>
        <translation>Diese Passphrase ist zu leicht zu erraten. %1</translation>
    </message>
    <message>
        <source>The two passphrases differ. Type the same one in both fields.</source>
        <extracomment>Change Passphrase dialog: the two fields hold different passphrases.</extracomment>
        <translation>Die beiden Passphrasen unterscheiden sich. Geben Sie in beide Felder dieselbe ein.</translation>
    </message>
    <message>
        <source>This is the passphrase in use already.</source>
        <extracomment>Change Passphrase dialog: the new passphrase is the one in use.</extracomment>
        <translation>Diese Passphrase ist bereits in Gebrauch.</translation>
    </message>
    <message>
        <source>Changing the passphrase…</source>
        <extracomment>Change Passphrase dialog: shown while the server&apos;s copy is encrypted again.</extracomment>
        <translation>Passphrase wird geändert …</translation>
    </message>
    <message>
        <source>The passphrase was not changed: %1 The old one stays in use.</source>
        <extracomment>Change Passphrase dialog: it failed; %1 is the reason. The old passphrase stays.</extracomment>
        <translation>Die Passphrase wurde nicht geändert: %1 Die alte bleibt in Gebrauch.</translation>
    </message>
    <message>
        <source>Close</source>
        <extracomment>Change Passphrase dialog: the button that closes it once the passphrase was changed.</extracomment>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>The passphrase was changed. This computer uploads its history again; enter the new passphrase on your other devices.</source>
        <extracomment>Change Passphrase dialog: the passphrase was changed.</extracomment>
        <translation>Die Passphrase wurde geändert. Dieser Computer lädt seinen Verlauf erneut hoch; geben Sie die neue Passphrase auf Ihren anderen Geräten ein.</translation>
    </message>
</context>
<context>
    <name>zettly::PasteKeysBox</name>
    <message>
        <source>Most applications paste with Ctrl+V, terminals with Ctrl+Shift+V, xterm and rxvt with Shift+Insert. Choose other keys for an application that pastes nothing.</source>
        <extracomment>Settings › General › paste keys: why one would choose the keys for an application. Key names as on the keyboard; xterm and rxvt are program names.</extracomment>
        <translation>Die meisten Anwendungen fügen mit Strg+V ein, Terminals mit Strg+Umschalt+V, xterm und rxvt mit Umschalt+Einfg. Wählen Sie andere Tasten für eine Anwendung, die nichts einfügt.</translation>
    </message>
    <message>
        <source>Application id</source>
        <extracomment>Settings › General › paste keys: placeholder of the field for an application id.</extracomment>
        <translation>Anwendungskennung</translation>
    </message>
    <message>
        <source>Add</source>
        <extracomment>Settings › General › paste keys: button that adds the typed application to the list.</extracomment>
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>Ctrl+V</source>
        <extracomment>Settings › General › paste keys: the keys that paste in most applications.</extracomment>
        <translation>Strg+V</translation>
    </message>
    <message>
        <source>Ctrl+Shift+V</source>
        <extracomment>Settings › General › paste keys: the keys that paste in most terminals.</extracomment>
        <translation>Strg+Umschalt+V</translation>
    </message>
    <message>
        <source>Shift+Insert</source>
        <extracomment>Settings › General › paste keys: the keys that paste in xterm and rxvt.</extracomment>
        <translation>Umschalt+Einfg</translation>
    </message>
    <message>
        <source>Paste keys for %1</source>
        <extracomment>Settings › General › paste keys: accessible name of the keys picker of one application. %1 is the application id.</extracomment>
        <translation>Einfügetasten für %1</translation>
    </message>
    <message>
        <source>Remove, pasting with the usual keys again</source>
        <extracomment>Settings › General › paste keys: tooltip of the button that removes an application&apos;s keys, so it is pasted into with the usual keys again.</extracomment>
        <translation>Entfernen; dann wird wieder mit den üblichen Tasten eingefügt</translation>
    </message>
    <message>
        <source>Remove %1</source>
        <extracomment>Settings › General › paste keys: accessible name of the remove button of one application. %1 is the application id.</extracomment>
        <translation>%1 entfernen</translation>
    </message>
</context>
<context>
    <name>zettly::PopupWindow</name>
    <message>
        <source>Zettly</source>
        <extracomment>Title of the history window (shown by some window lists).</extracomment>
        <translation>Zettly</translation>
    </message>
    <message>
        <source>Search</source>
        <extracomment>Placeholder of the search field at the top of the history window.</extracomment>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>↩ pick · Super+Space or Ctrl+Y preview</source>
        <extracomment>Footer of the history window: a short keyboard hint. ↩ is the Return key.</extracomment>
        <translation>↩ auswählen · Super+Leertaste oder Strg+Y Vorschau</translation>
    </message>
    <message>
        <source>Menu</source>
        <extracomment>Footer of the history window: tooltip of the button that opens the app menu.</extracomment>
        <translation>Menü</translation>
    </message>
    <message>
        <source>Update to %1 available</source>
        <extracomment>History window: prominent button shown when a new version of Zettly is available. The placeholder is the version number, e.g. 1.0.2. Keep it short.</extracomment>
        <translation>Update auf %1 verfügbar</translation>
    </message>
    <message>
        <source>None</source>
        <extracomment>Category menu: item that takes the clipboard item out of its category.</extracomment>
        <translation>Keine</translation>
    </message>
    <message>
        <source>New Category…</source>
        <extracomment>Menu item that creates a new category and puts the item in it. Use your language&apos;s menu capitalization.</extracomment>
        <translation>Neue Kategorie…</translation>
    </message>
    <message>
        <source>Copy</source>
        <extracomment>Context menu of a history item: copy it to the clipboard.</extracomment>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Copy and Paste</source>
        <extracomment>Context menu of a history item: copy it and paste it into the app in front.</extracomment>
        <translation>Kopieren und einfügen</translation>
    </message>
    <message>
        <source>Unpin</source>
        <extracomment>Context menu of a history item: unpin it.</extracomment>
        <translation>Loslösen</translation>
    </message>
    <message>
        <source>Pin</source>
        <extracomment>Context menu of a history item: pin it so it is never deleted automatically.</extracomment>
        <translation>Anheften</translation>
    </message>
    <message>
        <source>Edit Text…</source>
        <extracomment>Context menu of a history item: edit its text.</extracomment>
        <translation>Text bearbeiten…</translation>
    </message>
    <message>
        <source>Name…</source>
        <extracomment>Context menu of a history item: give it a short name shown above it.</extracomment>
        <translation>Benennen…</translation>
    </message>
    <message>
        <source>Category</source>
        <extracomment>Context menu of a history item: submenu to put it in a category.</extracomment>
        <translation>Kategorie</translation>
    </message>
    <message>
        <source>Preview</source>
        <extracomment>Context menu of a history item: show the whole item in a preview next to the window.</extracomment>
        <translation>Vorschau</translation>
    </message>
    <message>
        <source>Delete</source>
        <extracomment>Delete button or menu item (removes an item or a category). Short.</extracomment>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Clear History…</source>
        <extracomment>Footer menu of the history window: clears the history after asking.</extracomment>
        <translation>Verlauf leeren…</translation>
    </message>
    <message>
        <source>Settings…</source>
        <extracomment>Footer menu of the history window: opens the Settings window.</extracomment>
        <translation>Einstellungen…</translation>
    </message>
    <message>
        <source>About Zettly</source>
        <extracomment>Footer menu of the history window: opens the About page of the Settings window.</extracomment>
        <translation>Über Zettly</translation>
    </message>
    <message>
        <source>Check for Updates…</source>
        <extracomment>Footer menu of the history window: looks for a newer version of Zettly.</extracomment>
        <translation>Nach Updates suchen…</translation>
    </message>
    <message>
        <source>Quit Zettly</source>
        <extracomment>Footer menu of the history window: quits the application.</extracomment>
        <translation>Zettly beenden</translation>
    </message>
    <message>
        <source>Updates Not Set Up</source>
        <extracomment>Footer menu of the history window, greyed out, when this build has no update feed.</extracomment>
        <translation>Updates nicht eingerichtet</translation>
    </message>
    <message>
        <source>Searching…</source>
        <extracomment>Footer of the history window: shown while a search still reads the older history.</extracomment>
        <translation>Suche läuft…</translation>
    </message>
</context>
<context>
    <name>zettly::PortalGlobalShortcuts</name>
    <message>
        <source>Open the clipboard history</source>
        <extracomment>The description of Zettly&apos;s global shortcut in the desktop&apos;s shortcut dialog and settings.</extracomment>
        <translation>Den Verlauf der Zwischenablage öffnen</translation>
    </message>
</context>
<context>
    <name>zettly::PreviewPanel</name>
    <message>
        <source>Zettly Preview</source>
        <extracomment>Title of the preview beside the history window (shown by some window lists).</extracomment>
        <translation>Zettly-Vorschau</translation>
    </message>
</context>
<context>
    <name>zettly::RunningAppsButton</name>
    <message>
        <source>Open Windows</source>
        <extracomment>Settings › Ignore and Settings › General › paste keys: button with a menu of the open windows, to pick an application from.</extracomment>
        <translation>Offene Fenster</translation>
    </message>
    <message>
        <source>%1 — %2</source>
        <extracomment>The open-windows menu (Settings › Ignore, paste keys): an entry with the window&apos;s title, then the application id.</extracomment>
        <translation>%1 – %2</translation>
    </message>
    <message>
        <source>No windows found</source>
        <extracomment>The open-windows menu when no window could be listed.</extracomment>
        <translation>Keine Fenster gefunden</translation>
    </message>
</context>
<context>
    <name>zettly::SettingsWindow</name>
    <message>
        <source>Zettly Settings</source>
        <extracomment>Title of the settings window.</extracomment>
        <translation>Zettly-Einstellungen</translation>
    </message>
    <message>
        <source>General</source>
        <extracomment>Settings tab: shortcut, window, pasting, launch at login.</extracomment>
        <translation>Allgemein</translation>
    </message>
    <message>
        <source>Categories</source>
        <extracomment>Settings tab: the user&apos;s categories of clipboard items.</extracomment>
        <translation>Kategorien</translation>
    </message>
    <message>
        <source>Storage</source>
        <extracomment>Settings tab: how much history is kept and for how long.</extracomment>
        <translation>Speicher</translation>
    </message>
    <message>
        <source>Ignore</source>
        <extracomment>Settings tab: applications and text patterns whose copies are not saved.</extracomment>
        <translation>Ignorieren</translation>
    </message>
    <message>
        <source>Sync</source>
        <extracomment>Settings tab: syncing the history between the user&apos;s devices.</extracomment>
        <translation>Synchronisierung</translation>
    </message>
    <message>
        <source>About</source>
        <extracomment>Settings tab: version, links and licences.</extracomment>
        <translation>Über</translation>
    </message>
</context>
<context>
    <name>zettly::ShortcutRecorder</name>
    <message>
        <source>Shortcut</source>
        <extracomment>Accessible name of the button that shows and records the shortcut opening the history.</extracomment>
        <translation>Tastenkürzel</translation>
    </message>
    <message>
        <source>Reset</source>
        <extracomment>Button beside the shortcut: sets the shortcut back to Alt+V. Short.</extracomment>
        <translation>Zurücksetzen</translation>
    </message>
    <message>
        <source>Space</source>
        <extracomment>Name of the space bar in a shortcut, as in &quot;Ctrl+Space&quot;.</extracomment>
        <translation>Leertaste</translation>
    </message>
    <message>
        <source>Press a shortcut…</source>
        <extracomment>The shortcut button while it waits for the user to press the new shortcut.</extracomment>
        <translation>Tastenkürzel drücken…</translation>
    </message>
</context>
<context>
    <name>zettly::StoragePage</name>
    <message>
        <source>1 item</source>
        <extracomment>Settings › Storage › &quot;Keep up to:&quot; picker, a history of one single item.</extracomment>
        <translation>1 Eintrag</translation>
    </message>
    <message>
        <source>1 minute</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker.</extracomment>
        <translation>1 Minute</translation>
    </message>
    <message numerus="yes">
        <source>%n minutes</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>%n Minute</numerusform>
            <numerusform>%n Minuten</numerusform>
        </translation>
    </message>
    <message>
        <source>1 day</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker.</extracomment>
        <translation>1 Tag</translation>
    </message>
    <message numerus="yes">
        <source>%n days</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>%n Tag</numerusform>
            <numerusform>%n Tage</numerusform>
        </translation>
    </message>
    <message>
        <source>1 week</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker.</extracomment>
        <translation>1 Woche</translation>
    </message>
    <message>
        <source>1 hour</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker.</extracomment>
        <translation>1 Stunde</translation>
    </message>
    <message numerus="yes">
        <source>%n hours</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>%n Stunde</numerusform>
            <numerusform>%n Stunden</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 hours</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker, a retention set outside the app that is not a whole number of hours. %1 is a number with a fraction, such as 1.5.</extracomment>
        <translation>%1 Stunden</translation>
    </message>
    <message>
        <source>Keep up to:</source>
        <extracomment>Settings › Storage: label before the picker of how many items the history keeps.</extracomment>
        <translation>Höchstens behalten:</translation>
    </message>
    <message>
        <source>Delete after:</source>
        <extracomment>Settings › Storage: label before the picker of the age at which items are deleted.</extracomment>
        <translation>Löschen nach:</translation>
    </message>
    <message>
        <source>Save images</source>
        <extracomment>Settings › Storage switch: copied images are kept in the history too.</extracomment>
        <translation>Bilder speichern</translation>
    </message>
    <message>
        <source>Clear history when Zettly quits</source>
        <extracomment>Settings › Storage switch: the history (except pinned items) is deleted when Zettly quits.</extracomment>
        <translation>Verlauf beim Beenden von Zettly leeren</translation>
    </message>
    <message>
        <source>Clear History…</source>
        <extracomment>Settings › Storage button: asks, then deletes the history except pinned items.</extracomment>
        <translation>Verlauf leeren…</translation>
    </message>
    <message>
        <source>New copies are not being saved: the disk is full</source>
        <extracomment>Settings › Storage and the tray tooltip, while copies cannot be saved.</extracomment>
        <translation>Neue Kopien werden nicht gespeichert: Die Festplatte ist voll</translation>
    </message>
    <message>
        <source>New copies are not being saved: Zettly cannot write to %1</source>
        <extracomment>Settings › Storage and the tray tooltip. %1 is a folder, e.g. /home/ann/.local/share/Zettly/Library.</extracomment>
        <translation>Neue Kopien werden nicht gespeichert: Zettly kann nicht in %1 schreiben</translation>
    </message>
    <message>
        <source>New copies are not being saved: another program is using the history</source>
        <extracomment>Settings › Storage and the tray tooltip, while another program (a backup, a second Zettly) keeps the history&apos;s database locked.</extracomment>
        <translation>Neue Kopien werden nicht gespeichert: Ein anderes Programm verwendet den Verlauf</translation>
    </message>
    <message>
        <source>New copies are not being saved: the disk reported an error</source>
        <extracomment>Settings › Storage and the tray tooltip.</extracomment>
        <translation>Neue Kopien werden nicht gespeichert: Die Festplatte hat einen Fehler gemeldet</translation>
    </message>
    <message>
        <source>New copies are not being saved: %1 is damaged and could not be repaired</source>
        <extracomment>Settings › Storage and the tray tooltip. %1 is a file name, e.g. clipboard.sqlite.</extracomment>
        <translation>Neue Kopien werden nicht gespeichert: %1 ist beschädigt und konnte nicht repariert werden</translation>
    </message>
    <message>
        <source>Zettly started a new history</source>
        <extracomment>Title of the notification when a history file was made by another program.</extracomment>
        <translation>Zettly hat einen neuen Verlauf begonnen</translation>
    </message>
    <message>
        <source>%1 was not made by Zettly. It was left untouched as %2.</source>
        <extracomment>Notification. %1 is a file name (clipboard.sqlite), %2 the name it was renamed to (clipboard.sqlite.foreign-1800000000).</extracomment>
        <translation>%1 stammt nicht von Zettly. Die Datei wurde unverändert als %2 beiseitegelegt.</translation>
    </message>
    <message>
        <source>Zettly could not read its history</source>
        <extracomment>Title of the notification when a history file could not be read at all.</extracomment>
        <translation>Zettly konnte seinen Verlauf nicht lesen</translation>
    </message>
    <message>
        <source>%1 is damaged and was started anew. The damaged file is kept as %2.</source>
        <extracomment>Notification. %1 is a file name (clipboard.sqlite), %2 the name the damaged file was renamed to (clipboard.sqlite.corrupt-1800000000).</extracomment>
        <translation>%1 ist beschädigt und wurde neu angelegt. Die beschädigte Datei bleibt als %2 erhalten.</translation>
    </message>
    <message>
        <source>Zettly repaired its history</source>
        <extracomment>Title of the notification when a damaged history file was repaired.</extracomment>
        <translation>Zettly hat seinen Verlauf repariert</translation>
    </message>
    <message>
        <source>%1 was damaged. %2 entries were saved into a new file, %3 could not be read. The damaged file is kept as %4.</source>
        <extracomment>Notification. %1 is a file name (clipboard.sqlite), %2 the number of entries kept, %3 the number lost, %4 the name the damaged file was renamed to.</extracomment>
        <translation>%1 war beschädigt. %2 Einträge wurden in eine neue Datei gerettet, %3 konnten nicht gelesen werden. Die beschädigte Datei bleibt als %4 erhalten.</translation>
    </message>
    <message>
        <source>Off</source>
        <extracomment>Settings › Storage › &quot;Keep images as copied up to:&quot; picker: only the reduced copy is kept.</extracomment>
        <translation>Aus</translation>
    </message>
    <message>
        <source>%1 MB</source>
        <extracomment>Settings › Storage › &quot;Keep images as copied up to:&quot; picker. %1 is a number of megabytes.</extracomment>
        <translation>%1 MB</translation>
    </message>
    <message>
        <source>Picking an image pastes it as it was copied, at full size. Larger images and images from other devices paste reduced to 1280 pixels.</source>
        <extracomment>Settings › Storage, tooltip of the &quot;Keep images as copied up to:&quot; picker.</extracomment>
        <translation>Ein ausgewähltes Bild wird so eingefügt, wie es kopiert wurde, in voller Größe. Größere Bilder und Bilder von anderen Geräten werden auf 1280 Pixel verkleinert eingefügt.</translation>
    </message>
    <message>
        <source>Keep images as copied up to:</source>
        <extracomment>Settings › Storage: label before the picker of the largest image kept as it was copied.</extracomment>
        <translation>Bilder wie kopiert behalten bis:</translation>
    </message>
    <message numerus="yes">
        <source>%Ln items</source>
        <extracomment>Settings › Storage › &quot;Keep up to:&quot; picker: how many items the history keeps, with the digits grouped as the language writes them (100,000).</extracomment>
        <translation>
            <numerusform>%Ln Eintrag</numerusform>
            <numerusform>%Ln Einträge</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>zettly::StrengthMeter</name>
    <message>
        <source>Too weak</source>
        <extracomment>Settings › Sync: passphrase strength meter, the lowest of five grades.</extracomment>
        <translation>Zu schwach</translation>
    </message>
    <message>
        <source>Weak</source>
        <extracomment>Settings › Sync: passphrase strength meter, second of five grades.</extracomment>
        <translation>Schwach</translation>
    </message>
    <message>
        <source>Fair</source>
        <extracomment>Settings › Sync: passphrase strength meter, middle of five grades.</extracomment>
        <translation>Mittel</translation>
    </message>
    <message>
        <source>Strong</source>
        <extracomment>Settings › Sync: passphrase strength meter, fourth of five grades.</extracomment>
        <translation>Stark</translation>
    </message>
    <message>
        <source>Very strong</source>
        <extracomment>Settings › Sync: passphrase strength meter, the highest of five grades.</extracomment>
        <translation>Sehr stark</translation>
    </message>
    <message>
        <source>Enter a passphrase.</source>
        <extracomment>Settings › Sync: shown under an empty passphrase field.</extracomment>
        <translation>Geben Sie eine Passphrase ein.</translation>
    </message>
    <message>
        <source>It is one of the most common passwords or words, or made of them.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess.</extracomment>
        <translation>Sie ist eines der häufigsten Passwörter oder Wörter oder daraus zusammengesetzt.</translation>
    </message>
    <message>
        <source>It is a run of neighbouring keys.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess (&quot;qwerty&quot;, &quot;asdf&quot;).</extracomment>
        <translation>Sie ist eine Folge benachbarter Tasten.</translation>
    </message>
    <message>
        <source>It is a sequence such as abc or 123.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess (&quot;abcd&quot;, &quot;1234&quot;).</extracomment>
        <translation>Sie ist eine Folge wie abc oder 123.</translation>
    </message>
    <message>
        <source>It repeats itself.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess (&quot;aaaa&quot;, &quot;abcabc&quot;).</extracomment>
        <translation>Sie wiederholt sich.</translation>
    </message>
    <message>
        <source>It is built around a year.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess (it contains &quot;1987&quot;).</extracomment>
        <translation>Sie ist um eine Jahreszahl gebaut.</translation>
    </message>
    <message>
        <source>It is too short. A few unrelated words make a strong passphrase.</source>
        <extracomment>Settings › Sync: why a passphrase is easy to guess.</extracomment>
        <translation>Sie ist zu kurz. Einige unzusammenhängende Wörter ergeben eine starke Passphrase.</translation>
    </message>
</context>
<context>
    <name>zettly::SyncPage</name>
    <message>
        <source>Sync the clipboard history with your other devices</source>
        <extracomment>Settings › Sync: switch that turns syncing the clipboard history between devices on.</extracomment>
        <translation>Verlauf der Zwischenablage mit Ihren anderen Geräten synchronisieren</translation>
    </message>
    <message>
        <source>Texts, images, pins, names and categories travel between your devices.</source>
        <extracomment>Settings › Sync: what the sync switch covers.</extracomment>
        <translation>Texte, Bilder, Anheftungen, Namen und Kategorien werden zwischen Ihren Geräten abgeglichen.</translation>
    </message>
    <message>
        <source>Sync the order of the filters too</source>
        <extracomment>Settings › Sync: switch that also syncs the order of the filter chips of the history window; only available while sync is on.</extracomment>
        <translation>Auch die Reihenfolge der Filter synchronisieren</translation>
    </message>
    <message>
        <source>Cloud Copy</source>
        <extracomment>Settings › Sync: title of the section with the action that deletes the server copy.</extracomment>
        <translation>Cloud-Kopie</translation>
    </message>
    <message>
        <source>Removes everything Zettly keeps on the sync server. The history on your devices stays.</source>
        <extracomment>Settings › Sync: explains the &quot;Delete Cloud Copy…&quot; button.</extracomment>
        <translation>Entfernt alles, was Zettly auf dem Sync-Server aufbewahrt. Der Verlauf auf Ihren Geräten bleibt erhalten.</translation>
    </message>
    <message>
        <source>Delete Cloud Copy…</source>
        <extracomment>Settings › Sync: button that deletes the synced copy of the history on the server (asks first).</extracomment>
        <translation>Cloud-Kopie löschen…</translation>
    </message>
    <message>
        <source>Last synced: %1</source>
        <extracomment>Settings › Sync: status line; %1 is when the last sync ended, like &quot;5 minutes ago&quot; or a date and time.</extracomment>
        <translation>Zuletzt synchronisiert: %1</translation>
    </message>
    <message>
        <source>Not synced yet</source>
        <extracomment>Settings › Sync: status line before the first successful sync.</extracomment>
        <translation>Noch nicht synchronisiert</translation>
    </message>
    <message>
        <source>just now</source>
        <extracomment>Settings › Sync: when the last sync ended, less than a minute ago.</extracomment>
        <translation>gerade eben</translation>
    </message>
    <message numerus="yes">
        <source>%n minutes ago</source>
        <extracomment>Settings › Sync: when the last sync ended, in whole minutes.</extracomment>
        <translation>
            <numerusform>vor %n Minute</numerusform>
            <numerusform>vor %n Minuten</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n hours ago</source>
        <extracomment>Settings › Sync: when the last sync ended, in whole hours.</extracomment>
        <translation>
            <numerusform>vor %n Stunde</numerusform>
            <numerusform>vor %n Stunden</numerusform>
        </translation>
    </message>
    <message>
        <source>Delete the cloud copy of your clipboard history?</source>
        <extracomment>Settings › Sync: confirmation title before deleting the server copy of the history.</extracomment>
        <translation>Cloud-Kopie Ihres Zwischenablage-Verlaufs löschen?</translation>
    </message>
    <message>
        <source>The history on this computer and on your other devices stays. The copy on the sync server is removed for all your devices. While sync is on, the next sync uploads this computer&apos;s history again.</source>
        <extracomment>Settings › Sync: confirmation text before deleting the server copy of the history.</extracomment>
        <translation>Der Verlauf auf diesem Computer und auf Ihren anderen Geräten bleibt erhalten. Die Kopie auf dem Sync-Server wird für alle Ihre Geräte entfernt. Solange die Synchronisierung eingeschaltet ist, lädt die nächste Synchronisierung den Verlauf dieses Computers erneut hoch.</translation>
    </message>
    <message>
        <source>Deleting the cloud copy…</source>
        <extracomment>Settings › Sync: shown while the server copy is being deleted.</extracomment>
        <translation>Cloud-Kopie wird gelöscht…</translation>
    </message>
    <message>
        <source>The cloud copy could not be deleted: %1</source>
        <extracomment>Settings › Sync: the server copy could not be deleted; %1 is the reason.</extracomment>
        <translation>Die Cloud-Kopie konnte nicht gelöscht werden: %1</translation>
    </message>
    <message>
        <source>The cloud copy was deleted.</source>
        <extracomment>Settings › Sync: the server copy was deleted.</extracomment>
        <translation>Die Cloud-Kopie wurde gelöscht.</translation>
    </message>
    <message>
        <source>Sync is not set up</source>
        <extracomment>Settings › Sync: status while no sync server is configured (or sync is unavailable).</extracomment>
        <translation>Synchronisierung ist nicht eingerichtet</translation>
    </message>
    <message>
        <source>The passphrase does not match the data on the sync server</source>
        <extracomment>Settings › Sync: status when the passphrase cannot open what the server holds.</extracomment>
        <translation>Die Passphrase passt nicht zu den Daten auf dem Sync-Server</translation>
    </message>
    <message>
        <source>The sync server cannot be reached. Zettly tries again by itself.</source>
        <extracomment>Settings › Sync: status after the sync server could not be reached.</extracomment>
        <translation>Der Sync-Server ist nicht erreichbar. Zettly versucht es von selbst erneut.</translation>
    </message>
    <message>
        <source>The sync server is not available at the moment.</source>
        <extracomment>Settings › Sync: status when the server answered with a server error (5xx).</extracomment>
        <translation>Der Sync-Server ist im Moment nicht verfügbar.</translation>
    </message>
    <message>
        <source>The sync server asked Zettly to slow down. It tries again shortly.</source>
        <extracomment>Settings › Sync: status when the server asked to slow down (HTTP 429).</extracomment>
        <translation>Der Sync-Server hat Zettly gebeten, langsamer zu machen. Zettly versucht es gleich erneut.</translation>
    </message>
    <message>
        <source>The sync server did not accept the user name or password.</source>
        <extracomment>Settings › Sync: status when the server refused the user name or password.</extracomment>
        <translation>Der Sync-Server hat Benutzername oder Passwort nicht angenommen.</translation>
    </message>
    <message>
        <source>An item was too large for the sync server.</source>
        <extracomment>Settings › Sync: status when an item was larger than the server accepts.</extracomment>
        <translation>Ein Eintrag war zu groß für den Sync-Server.</translation>
    </message>
    <message>
        <source>Sync failed (error %1).</source>
        <extracomment>Settings › Sync: status after any other sync error; %1 is its number.</extracomment>
        <translation>Synchronisierung fehlgeschlagen (Fehler %1).</translation>
    </message>
    <message>
        <source>The data on the sync server was written by a newer version of Zettly. Update Zettly on this computer.</source>
        <extracomment>Settings › Sync: status when another device set up the server with a newer Zettly.</extracomment>
        <translation>Die Daten auf dem Sync-Server stammen von einer neueren Version von Zettly. Aktualisieren Sie Zettly auf diesem Computer.</translation>
    </message>
    <message>
        <source>The set-up record in the sync database is damaged.</source>
        <extracomment>Settings › Sync: status when the server&apos;s set-up document cannot be read.</extracomment>
        <translation>Der Einrichtungsdatensatz in der Sync-Datenbank ist beschädigt.</translation>
    </message>
    <message>
        <source>The passphrase was changed on another device. Enter the new passphrase above.</source>
        <extracomment>Settings › Sync: status after another device changed the passphrase.</extracomment>
        <translation>Die Passphrase wurde auf einem anderen Gerät geändert. Geben Sie oben die neue Passphrase ein.</translation>
    </message>
    <message>
        <source>The set-up record on the sync server was changed by something other than Zettly, so the data there cannot be trusted. Delete the cloud copy below to start it afresh; the history on your devices stays.</source>
        <extracomment>Settings › Sync: status when the server&apos;s set-up record was altered by a third party.</extracomment>
        <translation>Der Einrichtungseintrag auf dem Sync-Server wurde nicht von Zettly geändert; den Daten dort ist nicht zu trauen. Löschen Sie unten die Cloud-Kopie, um neu zu beginnen; der Verlauf auf Ihren Geräten bleibt erhalten.</translation>
    </message>
    <message>
        <source>The sync server holds records Zettly did not write. Zettly keeps its own copies and writes them over those.</source>
        <extracomment>Settings › Sync: status when records on the server fail the end-to-end check.</extracomment>
        <translation>Der Sync-Server enthält Einträge, die nicht von Zettly stammen. Zettly behält seine eigenen Kopien und schreibt sie darüber.</translation>
    </message>
    <message>
        <source>Changes from other devices could not be saved on this computer. Zettly fetches them again; see Settings › Storage.</source>
        <extracomment>Settings › Sync: status when the local history database refused what arrived.</extracomment>
        <translation>Änderungen von anderen Geräten konnten auf diesem Computer nicht gespeichert werden. Zettly holt sie erneut; siehe Einstellungen › Speicher.</translation>
    </message>
    <message>
        <source>Some entries from other devices could not be saved on this computer. Zettly tries them again with every sync.</source>
        <extracomment>Settings › Sync: status while records that keep failing are set aside.</extracomment>
        <translation>Einige Einträge von anderen Geräten konnten auf diesem Computer nicht gespeichert werden. Zettly versucht es bei jeder Synchronisierung erneut.</translation>
    </message>
    <message>
        <source>Some pictures from other devices could not be saved on this computer. Zettly tries again later.</source>
        <extracomment>Settings › Sync: status while image downloads keep failing (they are retried later).</extracomment>
        <translation>Einige Bilder von anderen Geräten konnten auf diesem Computer nicht gespeichert werden. Zettly versucht es später erneut.</translation>
    </message>
    <message>
        <source>The sync server sent an answer too large to accept.</source>
        <extracomment>Settings › Sync: status when the server&apos;s answer exceeded the size limit.</extracomment>
        <translation>Der Sync-Server hat eine zu große Antwort gesendet.</translation>
    </message>
    <message>
        <source>The sync server took too long to answer. Zettly tries again by itself.</source>
        <extracomment>Settings › Sync: status when a request ran into its overall time limit.</extracomment>
        <translation>Der Sync-Server hat zu lange für die Antwort gebraucht. Zettly versucht es von selbst erneut.</translation>
    </message>
    <message numerus="yes">
        <source>Your computer&apos;s clock is %n hours off. Zettly holds back deletions until it is set right.</source>
        <extracomment>Settings › Sync: status when this computer&apos;s clock differs from the server&apos;s.</extracomment>
        <translation>
            <numerusform>Die Uhr Ihres Computers geht %n Stunde falsch. Zettly hält Löschungen zurück, bis sie richtig gestellt ist.</numerusform>
            <numerusform>Die Uhr Ihres Computers geht %n Stunden falsch. Zettly hält Löschungen zurück, bis sie richtig gestellt ist.</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Your computer&apos;s clock is %n minutes off. Zettly holds back deletions until it is set right.</source>
        <extracomment>Settings › Sync: status when this computer&apos;s clock differs from the server&apos;s.</extracomment>
        <translation>
            <numerusform>Die Uhr Ihres Computers geht %n Minute falsch. Zettly hält Löschungen zurück, bis sie richtig gestellt ist.</numerusform>
            <numerusform>Die Uhr Ihres Computers geht %n Minuten falsch. Zettly hält Löschungen zurück, bis sie richtig gestellt ist.</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>zettly::SyncServerBox</name>
    <message>
        <source>Sync Server</source>
        <extracomment>Settings › Sync: title of the section with the sync server&apos;s address and sign-in.</extracomment>
        <translation>Sync-Server</translation>
    </message>
    <message>
        <source>https://couch.example.org/zettly</source>
        <extracomment>Settings › Sync: example of a sync server address (a CouchDB database URL).</extracomment>
        <translation>https://couch.example.org/zettly</translation>
    </message>
    <message>
        <source>Database address:</source>
        <extracomment>Settings › Sync: label of the sync server&apos;s address (a CouchDB database URL).</extracomment>
        <translation>Datenbankadresse:</translation>
    </message>
    <message>
        <source>User name:</source>
        <extracomment>Settings › Sync: label of the user name on the sync server.</extracomment>
        <translation>Benutzername:</translation>
    </message>
    <message>
        <source>Password:</source>
        <extracomment>Settings › Sync: label of the password on the sync server.</extracomment>
        <translation>Passwort:</translation>
    </message>
    <message>
        <source>Passphrase:</source>
        <extracomment>Settings › Sync: label of the passphrase that encrypts the history on the server.</extracomment>
        <translation>Passphrase:</translation>
    </message>
    <message>
        <source>Your history is encrypted with the passphrase before it leaves this computer; the server never sees it. Use the same passphrase on every device. It cannot be recovered.</source>
        <extracomment>Settings › Sync: explains the passphrase.</extracomment>
        <translation>Ihr Verlauf wird mit der Passphrase verschlüsselt, bevor er diesen Computer verlässt; der Server sieht sie nie. Verwenden Sie auf jedem Gerät dieselbe Passphrase. Sie kann nicht wiederhergestellt werden.</translation>
    </message>
    <message>
        <source>Test Connection</source>
        <extracomment>Settings › Sync: button that tries to reach the sync server with these settings.</extracomment>
        <translation>Verbindung testen</translation>
    </message>
    <message>
        <source>The password and passphrase are kept in %1.</source>
        <extracomment>Settings › Sync: where the password and passphrase are stored. %1 is a place such as &quot;the Secret Service&quot; or a file path.</extracomment>
        <translation>Passwort und Passphrase werden hier aufbewahrt: %1.</translation>
    </message>
    <message>
        <source>Zettly could not store this secret. Check that your keyring is unlocked and try again.</source>
        <extracomment>Settings › Sync: the password or passphrase could not be stored.</extracomment>
        <translation>Zettly konnte dieses Geheimnis nicht speichern. Prüfen Sie, ob Ihr Schlüsselbund entsperrt ist, und versuchen Sie es erneut.</translation>
    </message>
    <message>
        <source>Connecting…</source>
        <extracomment>Settings › Sync: shown while the connection test runs.</extracomment>
        <translation>Verbinde …</translation>
    </message>
    <message>
        <source>Change Passphrase…</source>
        <extracomment>Settings › Sync: button that opens the dialog changing the passphrase on every device.</extracomment>
        <translation>Passphrase ändern …</translation>
    </message>
</context>
<context>
    <name>zettly::TrayMenu</name>
    <message>
        <source>Show History</source>
        <extracomment>Tray menu item, the first: opens the history window, as the shortcut does.</extracomment>
        <translation>Verlauf anzeigen</translation>
    </message>
    <message>
        <source>No Copies Yet</source>
        <extracomment>Tray menu: greyed, in place of the newest copies while the history is empty.</extracomment>
        <translation>Noch nichts kopiert</translation>
    </message>
    <message>
        <source>Skip Next Copy</source>
        <extracomment>Tray menu item: do not save the next copy (Alt+Shift-click does the same).</extracomment>
        <translation>Nächste Kopie überspringen</translation>
    </message>
    <message>
        <source>Settings…</source>
        <extracomment>Tray menu item that opens the settings window.</extracomment>
        <translation>Einstellungen…</translation>
    </message>
    <message>
        <source>Check for Updates…</source>
        <extracomment>Tray menu item.</extracomment>
        <translation>Nach Updates suchen…</translation>
    </message>
    <message>
        <source>Updates Not Set Up</source>
        <extracomment>Tray menu item, greyed out, when this build has no update feed.</extracomment>
        <translation>Updates nicht eingerichtet</translation>
    </message>
    <message>
        <source>Quit Zettly</source>
        <extracomment>Tray menu item that quits the application.</extracomment>
        <translation>Zettly beenden</translation>
    </message>
    <message>
        <source>Resume Capture</source>
        <extracomment>Tray menu item that resumes saving copies.</extracomment>
        <translation>Aufzeichnung fortsetzen</translation>
    </message>
    <message>
        <source>Pause Capture</source>
        <extracomment>Tray menu item that pauses saving copies (Alt-click does the same).</extracomment>
        <translation>Aufzeichnung anhalten</translation>
    </message>
    <message>
        <source>Image %1 × %2</source>
        <extracomment>Tray menu: a copied picture without a name. %1 × %2 are its width and height in pixels.</extracomment>
        <translation>Bild %1 × %2</translation>
    </message>
</context>
</TS>
