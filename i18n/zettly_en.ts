<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>zettly::CategoriesPage</name>
    <message numerus="yes">
        <source>%n items</source>
        <extracomment>Settings › Categories: number of items in a category.</extracomment>
        <translation>
            <numerusform>1 item</numerusform>
            <numerusform>%n items</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>zettly::StoragePage</name>
    <message numerus="yes">
        <source>%Ln items</source>
        <extracomment>Settings › Storage › &quot;Keep up to:&quot; picker: how many items the history keeps, with the digits grouped as the language writes them (100,000).</extracomment>
        <translation>
            <numerusform>1 item</numerusform>
            <numerusform>%Ln items</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n minutes</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>1 minute</numerusform>
            <numerusform>%n minutes</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n days</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>1 day</numerusform>
            <numerusform>%n days</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n hours</source>
        <extracomment>Settings › Storage › &quot;Delete after:&quot; picker: items older than this are deleted.</extracomment>
        <translation>
            <numerusform>1 hour</numerusform>
            <numerusform>%n hours</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>zettly::SyncPage</name>
    <message numerus="yes">
        <source>%n minutes ago</source>
        <extracomment>Settings › Sync: when the last sync ended, in whole minutes.</extracomment>
        <translation>
            <numerusform>1 minute ago</numerusform>
            <numerusform>%n minutes ago</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n hours ago</source>
        <extracomment>Settings › Sync: when the last sync ended, in whole hours.</extracomment>
        <translation>
            <numerusform>1 hour ago</numerusform>
            <numerusform>%n hours ago</numerusform>
        </translation>
    </message>
</context>
</TS>
