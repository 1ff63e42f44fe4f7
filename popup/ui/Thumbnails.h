#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QSize>
#include <QString>
#include <QThreadPool>

namespace zettly {

// Thumbnails of image rows, decoded off the main thread at the size they are
// drawn (a JPEG scales down while it decodes) and kept by path, so scrolling
// through the list never waits for the disk.
class ThumbnailCache : public QObject {
    Q_OBJECT
public:
    explicit ThumbnailCache(QObject* parent = nullptr);
    ~ThumbnailCache() override;

    // The image scaled to fit `box` (device pixels), or none while it loads
    // or when the file cannot be read (then `failed` is true).
    const QImage* find(const QString& path, QSize box, bool* failed = nullptr);
    // Blocks until the loads under way are done and delivered (for tests).
    void waitForLoads();

Q_SIGNALS:
    void loaded();

private:
    void deliver(const QString& key, const QImage& image);

    QThreadPool pool_;
    QCache<QString, QImage> images_;
    QSet<QString> pending_;
    QSet<QString> failed_;
};

}  // namespace zettly
