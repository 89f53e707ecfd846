// A batch of ciphertexts, scored by the ranks of MPI.
//
// Rank 0 is the client: it makes the keys, and only it has the secret one. It sends ciphertexts in their file format,
// one at a time to each of the others, which open the key directory, read each key once when they need it, and
// compute. The directory lies where all machines see it:
//
//     OMP_NUM_THREADS=1 mpirun -n 9 score_with_mpi /shared/scratch

#include <Torvo/Torvo.hpp>

#include <mpi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace Torvo;

constexpr unsigned long features = 16;
constexpr int client = 0, ciphertexts = 12;
constexpr double bias = -0.2, bound = 4;

double weight(unsigned long i) {
    return 0.3 * std::cos(0.7 * static_cast<double>(i));
}

double feature(int ciphertext, unsigned long slot) {
    return std::sin(0.37 * static_cast<double>(slot) + 1.1 * ciphertext);
}

void send(const std::string& bytes, int rank) {
    MPI_Send(bytes.data(), static_cast<int>(bytes.size()), MPI_BYTE, rank, 0, MPI_COMM_WORLD);
}

std::string receive(int rank) {
    MPI_Status status;
    int count = 0;
    MPI_Probe(rank, 0, MPI_COMM_WORLD, &status);
    MPI_Get_count(&status, MPI_BYTE, &count);
    std::string bytes(static_cast<std::size_t>(count), '\0');
    MPI_Recv(bytes.data(), count, MPI_BYTE, rank, 0, MPI_COMM_WORLD, &status);
    return bytes;
}

void send(const Ciphertext& ciphertext, int rank) {
    std::ostringstream stream;
    ciphertext.save(stream);
    send(stream.str(), rank);
}

void receive(int rank, Ciphertext& ciphertext) {
    std::istringstream stream(receive(rank));
    ciphertext.load(stream);
}

/// What rank `rank` of the `workers` computes: every so many-th ciphertext.
void compute(int rank, int workers) {
    const std::string directory = receive(client);
    const Context context = makeContextFromFile(directory + "/Context.bin");
    const HomEvaluator evaluator(context, directory);
    Message weights(getLogFullSlots(context));
    for (unsigned long i = 0; i < weights.getSize(); ++i) weights[i] = weight(i % features);
    Ciphertext ciphertext(context);
    for (int index = rank - 1; index < ciphertexts; index += workers) {
        // sigmoid(w x + b) of the numbers in each block of slots, in every slot of the block.
        receive(client, ciphertext);
        evaluator.mult(ciphertext, weights, ciphertext);
        sum<Ciphertext>(evaluator, ciphertext, ciphertext, {.length = features});
        evaluator.add(ciphertext, bias, ciphertext);
        sigmoid<Ciphertext>(evaluator, ciphertext, bound, 1e-3, ciphertext);
        send(ciphertext, client);
    }
}

/// The largest difference between decrypted scores and those in the clear.
double errorOf(const Message& scores, int index) {
    double error = 0;
    for (unsigned long start = 0; start < scores.getSize(); start += features) {
        double sum = bias;
        for (unsigned long i = 0; i < features; ++i) sum += weight(i) * feature(index, start + i);
        error = std::max(error, std::abs(scores[start] - 1 / (1 + std::exp(-sum))));
    }
    return error;
}

int request(const std::filesystem::path& shared, int workers) {
    std::string directory = (shared / "torvo-mpi-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) throw std::runtime_error("cannot make the folder " + directory);
    const Context context = makeContext(ParameterPreset::ST11);
    const SecretKey secretKey(context); // never leaves this rank
    const KeyGenerator generator(context, secretKey);
    generator.genEncKey();
    generator.genMultKey();
    generator.genRotKeyBundle();
    generator.save(directory);
    saveContextToFile(context, directory + "/Context.bin");
    for (int rank = 1; rank <= workers; ++rank) send(directory, rank);

    Message message(getLogFullSlots(context));
    Ciphertext ciphertext(context), scores(context);
    const auto encrypt = [&](int index) {
        if (index >= ciphertexts) return;
        for (unsigned long i = 0; i < message.getSize(); ++i) message[i] = feature(index, i);
        Encryptor(context).encrypt(message, generator.getKeyPack(), ciphertext);
        send(ciphertext, 1 + index % workers);
    };
    // Each rank has one ciphertext at a time: two blocking sends never meet.
    for (int index = 0; index < workers; ++index) encrypt(index);
    double error = 0;
    for (int index = 0; index < ciphertexts; ++index) {
        receive(1 + index % workers, scores);
        encrypt(index + workers);
        Decryptor(context).decrypt(scores, secretKey, message);
        error = std::max(error, errorOf(message, index));
    }
    std::filesystem::remove_all(directory);
    std::printf("%d ciphertexts of %lu scores by %d rank(s), largest error %.5f\n", ciphertexts,
                message.getSize() / features, workers, error);
    return error < 2e-3 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    MPI_Init(&argc, &argv);
    int rank = 0, ranks = 0, outcome = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &ranks);
    try {
        if (ranks < 2) throw std::runtime_error("a single rank is started; start two or more: mpirun -n 2");
        if (rank == client)
            outcome = request(argc > 1 ? argv[1] : std::filesystem::temp_directory_path(), ranks - 1);
        else
            compute(rank, ranks - 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "rank %d: %s\n", rank, error.what());
        MPI_Abort(MPI_COMM_WORLD, 1); // or the others would wait for ever
    }
    MPI_Finalize();
    return outcome;
}
