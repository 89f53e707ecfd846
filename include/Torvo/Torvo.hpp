#pragma once

/// Everything that an application needs.
#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/CudaTools.hpp>
#include <Torvo/Decryptor.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/EncodingType.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EncryptionType.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/GlobalConfiguration.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/ParameterPreset.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/Pointer.hpp>
#include <Torvo/Randomseeds.hpp>
#include <Torvo/RuntimeException.hpp>
#include <Torvo/SecretKey.hpp>
#include <Torvo/SecurityLevel.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>
