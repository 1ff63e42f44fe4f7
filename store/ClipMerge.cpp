#include "store/ClipMerge.h"

namespace zettly {

namespace {

// Pin, category and label are one block with their own clock: two copies
// agree only when all of it agrees, the clock included.
bool sameMeta(const ClipMerge::Side& a, const ClipMerge::Side& b) {
    return a.pinned == b.pinned && a.category == b.category && a.label == b.label && a.mm == b.mm;
}

}  // namespace

ClipMerge::Result ClipMerge::merge(const Side& local, const Side& remote) {
    // Every comparison is written so that a NaN (a damaged record) answers
    // false and the local copy is kept.
    bool remoteMeta =
        remote.mm != local.mm ? local.mm < remote.mm : local.modified < remote.modified;
    const Side& meta = remoteMeta ? remote : local;

    Result result;
    Side& merged = result.side;
    merged.mm = meta.mm;
    merged.pinned = meta.pinned;
    merged.category = meta.category;
    merged.label = meta.label;
    // A copy made later on either device moves the entry forward on both,
    // whichever side's metadata won.
    merged.modified = remote.modified >= local.modified ? remote.modified : local.modified;
    merged.created = remote.created >= local.created ? remote.created : local.created;

    // A later `modified` alone is carried along but is not worth an upload
    // or a refresh: what the user sees is the order and the metadata.
    result.needsUpload = merged.created != remote.created || !sameMeta(merged, remote);
    result.localChanged = merged.created != local.created || !sameMeta(merged, local);
    return result;
}

}  // namespace zettly
