#include "model/namekey.h"

namespace {

constexpr char16_t kSharpS = u'\u00df';
constexpr char16_t kCombiningDotAbove = u'\u0307';

} // namespace

QString NameKey::fromName(QStringView name)
{
    // Decomposing first lets the simple folding that Qt offers reach what full folding does for nearly every
    // character: ligatures, Greek letters with ypogegrammeni and letters with accents fall apart into
    // pieces that fold one by one. The sharp s (and the capital ẞ, which simple folding turns into ß) is
    // the one letter left that full folding expands.
    const QString folded = name.toString().normalized(QString::NormalizationForm_KD).toCaseFolded();
    QString key;
    key.reserve(folded.size() + 2);
    for (qsizetype i = 0; i < folded.size(); ++i) {
        const QChar c = folded.at(i);
        if (c == QChar(kSharpS)) {
            key += QLatin1String("ss");
        } else if (c == QChar(kCombiningDotAbove) && i > 0 && folded.at(i - 1) == QLatin1Char('i')) {
            // İ decomposes into I and a combining dot; the dot on a small i is the one it already has.
            continue;
        } else {
            key += c;
        }
    }
    return key.normalized(QString::NormalizationForm_KC);
}
