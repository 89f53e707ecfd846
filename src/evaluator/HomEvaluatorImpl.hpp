#pragma once

#include "core/Integers.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "evaluator/KeySwitcher.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <complex>
#include <memory>
#include <string>
#include <vector>

namespace Torvo {

/// The work behind `HomEvaluator`, whose documentation holds for the members of the same name. Spread over
/// the units HomEvaluatorMessage, HomEvaluatorPlaintext, HomEvaluatorLinear, HomEvaluatorMult and
/// HomEvaluatorRotation.
class HomEvaluatorImpl {
public:
    HomEvaluatorImpl(const Context& context, const std::string& keyDirPath);
    HomEvaluatorImpl(const Context& context, KeyPack keyPack);

    // The evaluator implementer declares here every operation of `HomEvaluator`, and:
    //   addWithoutCheck, subWithoutCheck (templates over EncryptionType),
    //   multWithoutRescale for plaintexts,
    //   innerProduct(plainBegin, plainEnd, cipherBegin, out),
    //   leftRotate(ct, indices, outs), getRotIdxDecomposition(index, out, count).

private:
    Context context_;
    KeyPack keyPack_;
    std::shared_ptr<ConstantEnDecoder> constantEnDecoder_;
    std::shared_ptr<EnDecoder> enDecoder_;
    std::shared_ptr<KeySwitcher> keySwitcher_;
};

} // namespace Torvo
