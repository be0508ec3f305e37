#include "Utf8.h"

#include <QStringDecoder>

namespace Utf8 {

namespace {
constexpr auto decoderFlags =
    QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom;
}

std::optional<QString> decodeStrict(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8, decoderFlags);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

QString decodeLossy(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8, decoderFlags);
    return decoder.decode(bytes);
}

} // namespace Utf8
