#include "app/LineBuffer.h"

namespace zl {

QList<QByteArray> takeLines(QByteArray& buffer)
{
    QList<QByteArray> lines;
    qsizetype start = 0;
    qsizetype end = 0;
    while ((end = buffer.indexOf('\n', start)) >= 0) {
        QByteArray line = buffer.mid(start, end - start);
        start = end + 1;
        if (line.endsWith('\r'))
            line.chop(1);
        if (!line.isEmpty())
            lines.append(line);
    }
    buffer.remove(0, start);
    return lines;
}

} // namespace zl
