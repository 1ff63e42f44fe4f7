// The CLIPBOARD selection as the Shell holds it: the change count and the
// offered types, reads into a pipe of the app's and writes. The contents
// pass through and are never kept or logged; types and sizes may be.
// No imports (see bridge.js).

// The counter survives clients: it counts the changes since the extension was
// enabled, so a client that registers again never sees a serial repeat.
// deps: {GLib, Gio, Meta, global, GLibUnix, GioUnix, bridgeError}.
export function createClipboard({GLib, Gio, Meta, global, GLibUnix, GioUnix, bridgeError}) {
    const CLIPBOARD = Meta.SelectionType.SELECTION_CLIPBOARD;
    let serial = 0;
    let selection = null;
    let ownerChangedId = 0;
    // The reads under way, so that stop() can end them.
    const reads = new Set();

    function mimeTypes() {
        return selection.get_mimetypes(CLIPBOARD);
    }

    // GLib 2.80 moved the Unix streams to GioUnix; the old names still work
    // there but warn.
    function outputStreamFor(fd) {
        const Stream = GioUnix ? GioUnix.OutputStream : Gio.UnixOutputStream;
        return new Stream({fd, close_fd: true});
    }

    // A full pipe must make the write wait, not stop the compositor.
    function setNonblocking(fd) {
        if (GLibUnix)
            GLibUnix.set_fd_nonblocking(fd, true);
        else
            GLib.unix_set_fd_nonblocking(fd, true);
    }

    // At most `size` bytes of the offer, gathered in memory first: Mutter
    // copies a bounded transfer with single writes, and a non-blocking pipe
    // may take only part of one, which Mutter would not notice.
    function transfer(mimeType, size, cancellable) {
        const memory = Gio.MemoryOutputStream.new_resizable();
        return new Promise((resolve, reject) => {
            selection.transfer_async(CLIPBOARD, mimeType, size, memory, cancellable,
                (source, result) => {
                    try {
                        source.transfer_finish(result);
                        memory.close(null);
                        resolve(memory.steal_as_bytes());
                    } catch (e) {
                        reject(e);
                    }
                });
        });
    }

    function writeAll(output, bytes, cancellable) {
        const input = Gio.MemoryInputStream.new_from_bytes(bytes);
        return new Promise((resolve, reject) => {
            output.splice_async(input, Gio.OutputStreamSpliceFlags.CLOSE_SOURCE,
                GLib.PRIORITY_DEFAULT, cancellable, (stream, result) => {
                    try {
                        stream.splice_finish(result);
                        resolve();
                    } catch (e) {
                        reject(e);
                    }
                });
        });
    }

    return {
        // Watches the selection; `changed(serial, mimeTypes)` on each change.
        start(changed) {
            selection = global.display.get_selection();
            ownerChangedId = selection.connect('owner-changed', (_selection, type) => {
                if (type !== CLIPBOARD)
                    return;
                serial += 1;
                changed(serial, mimeTypes());
            });
        },

        stop() {
            if (!selection)
                return;
            selection.disconnect(ownerChangedId);
            ownerChangedId = 0;
            selection = null;
            for (const cancellable of reads)
                cancellable.cancel();
            reads.clear();
        },

        get() {
            return [serial, mimeTypes()];
        },

        // Writes at most maxBytes + 1 bytes of `mimeType` into the call's
        // file descriptor number `fdIndex`, then closes it.
        async read(mimeType, maxBytes, fdIndex, fdList) {
            // Taken out of the message: a copy left there would keep the pipe
            // open until the message is garbage-collected, and the app would
            // wait that long for the end of the data.
            const fds = fdList ? fdList.steal_fds() : [];
            fds.forEach((fd, index) => index !== fdIndex && GLib.close(fd));
            if (fds[fdIndex] === undefined)
                throw bridgeError('Failed', 'the call carries no file descriptor');
            const output = outputStreamFor(fds[fdIndex]);
            const cancellable = new Gio.Cancellable();
            reads.add(cancellable);
            try {
                if (!mimeTypes().includes(mimeType))
                    throw bridgeError('NotOffered', `the clipboard offers no ${mimeType}`);
                setNonblocking(output.get_fd());
                const bytes = await transfer(mimeType, maxBytes + 1, cancellable);
                await writeAll(output, bytes, cancellable);
            } catch (e) {
                if (e.dbusName)
                    throw e;
                throw bridgeError('Failed', `reading ${mimeType}: ${e.message}`);
            } finally {
                reads.delete(cancellable);
                output.close(null);
            }
        },

        // Offers `data` as the one type `mimeType`; returns [the serial of
        // this change].
        set(mimeType, data) {
            if (mimeType === '')
                throw bridgeError('Failed', 'no type given for the clipboard');
            let source;
            try {
                source = Meta.SelectionSourceMemory.new(mimeType, new GLib.Bytes(data));
            } catch (e) {
                throw bridgeError('Failed',
                    `cannot offer ${data.length} bytes of ${mimeType}: ${e.message}`);
            }
            // The owner-changed handler counts this change before set_owner
            // returns.
            selection.set_owner(CLIPBOARD, source);
            return [serial];
        },
    };
}
