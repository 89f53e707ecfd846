#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <complex>

namespace {

double largestDifference(const Torvo::Message& a, const Torvo::Message& b) {
    double largest = 0.0;
    for (unsigned long i = 0; i < a.getSize(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

} // namespace

/// Encrypts and decrypts with a key of the calling thread's own; the largest error of a slot, or 1 when the
/// library throws.
extern "C" TORVO_API double torvoPluginRoundTrip() {
    try {
        const Torvo::Context context = Torvo::makeContext(Torvo::ParameterPreset::FX);
        const Torvo::SecretKey secretKey(context);
        const Torvo::Message message(5, {0.5, -0.25});
        Torvo::Ciphertext ciphertext(context);
        Torvo::Encryptor(context).encrypt(message, secretKey, ciphertext);
        Torvo::Message decrypted;
        Torvo::Decryptor(context).decrypt(ciphertext, secretKey, decrypted);
        return decrypted.getSize() == message.getSize() ? largestDifference(message, decrypted) : 1.0;
    } catch (...) {
        return 1.0;
    }
}
