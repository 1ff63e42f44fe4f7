#include "popup/ui/Thumbnails.h"

#include <QCoreApplication>
#include <QImageReader>
#include <QRunnable>

namespace zettly {
namespace {

QString cacheKey(const QString& path, QSize box) {
    return path + QLatin1Char('@') + QString::number(box.width()) + QLatin1Char('x') +
           QString::number(box.height());
}

QImage readScaled(const QString& path, QSize box) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QSize size = reader.size();
    if (size.isValid() && (size.width() > box.width() || size.height() > box.height()))
        reader.setScaledSize(size.scaled(box, Qt::KeepAspectRatio));
    return reader.read();
}

}  // namespace

ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent) {
    pool_.setMaxThreadCount(2);
    images_.setMaxCost(24 * 1024 * 1024);  // bytes of decoded pixels
}

ThumbnailCache::~ThumbnailCache() {
    // Loads still running post to this object; let none outlive it.
    pool_.clear();
    pool_.waitForDone();
}

const QImage* ThumbnailCache::find(const QString& path, QSize box, bool* failed) {
    const QString key = cacheKey(path, box);
    if (failed)
        *failed = failed_.contains(key);
    if (const QImage* image = images_.object(key))
        return image;
    if (pending_.contains(key) || failed_.contains(key))
        return nullptr;
    pending_.insert(key);
    pool_.start([this, key, path, box] {
        QImage image = readScaled(path, box);
        // Queued: runs on the main thread, dropped if this object is gone.
        QMetaObject::invokeMethod(
            this, [this, key, image] { deliver(key, image); }, Qt::QueuedConnection);
    });
    return nullptr;
}

void ThumbnailCache::deliver(const QString& key, const QImage& image) {
    pending_.remove(key);
    if (image.isNull())
        failed_.insert(key);
    else
        images_.insert(key, new QImage(image),
                       int(std::min<qsizetype>(image.sizeInBytes(), 1 << 30)));
    Q_EMIT loaded();
}

void ThumbnailCache::waitForLoads() {
    pool_.waitForDone();
    QCoreApplication::sendPostedEvents(this);
}

}  // namespace zettly
