// 4. Keys and ciphertexts on disk.
//
// A client and a server are two processes that share a directory. The client writes its public keys and a
// ciphertext there, and keeps the secret key to itself; the server reads what it needs, computes, and leaves
// the result. Called without arguments, this program is the client and starts the server itself.

#include <Torvo/Torvo.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using namespace Torvo;

// Runs in its own process and knows nothing but the directory.
int serve(const std::string& directory) {
    // The file is a recipe of 69 bytes; the context is rebuilt from it.
    const Context context = makeContextFromFile(directory + "/context.bin");

    // An evaluator with a key directory reads each key when it is first needed, and never more than that.
    const HomEvaluator evaluator(context, directory);

    Ciphertext ciphertext(context);
    ciphertext.load(directory + "/request.bin");

    // The mean of the squares.
    const unsigned long slots = ciphertext.getNumberOfSlots();
    evaluator.square(ciphertext, ciphertext);
    evaluator.leftRotateReduce(ciphertext, 1, slots, ciphertext);
    evaluator.mult(ciphertext, 1.0 / static_cast<double>(slots), ciphertext);
    ciphertext.save(directory + "/response.bin");
    std::printf("[server %d] computed the mean of %lu squares without seeing one of them\n", getpid(), slots);
    return 0;
}

int request(const std::string& directory, const char* self) {
    const Context context = makeContext(ParameterPreset::SS7);
    saveContextToFile(context, directory + "/context.bin");

    const SecretKey secretKey(context); // never leaves this process
    const KeyGenerator keyGenerator(context, secretKey);
    keyGenerator.genEncKey();
    keyGenerator.genMultKey();
    keyGenerator.genRotKeyBundle();
    keyGenerator.save(directory);
    for (const auto& file : {"EncKey.bin", "MultKey.bin", "RotKey1.bin"})
        std::printf(
            "[client %d] PK/%s: %ju KiB\n", getpid(), file,
            static_cast<std::uintmax_t>(std::filesystem::file_size(directory + "/PK/" + file) / 1024));

    Message message(8);
    double expected = 0;
    for (unsigned long i = 0; i < message.getSize(); ++i) {
        message[i] = std::sin(static_cast<double>(i));
        expected += std::norm(message[i]) / static_cast<double>(message.getSize());
    }
    Ciphertext ciphertext(context);
    Encryptor(context).encrypt(message, KeyPack(context, directory), ciphertext);
    ciphertext.save(directory + "/request.bin");
    std::fflush(stdout);

    const pid_t server = fork();
    if (server == 0) {
        execl(self, self, "server", directory.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    if (server < 0 || waitpid(server, &status, 0) != server || status != 0) return 1;

    ciphertext.load(directory + "/response.bin");
    Message result;
    Decryptor(context).decrypt(ciphertext, secretKey, result);
    const double error = std::abs(result[0] - expected);
    std::printf("[client %d] answer %.9f, expected %.9f, error 2^%.1f\n", getpid(), result[0].real(),
                expected, std::log2(error));
    return error < 0x1p-18 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "server") return serve(argv[2]);

    std::string directory = (std::filesystem::temp_directory_path() / "torvo-keys-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) return 1;
    const int outcome = request(directory, argv[0]);
    std::filesystem::remove_all(directory);
    return outcome;
}
