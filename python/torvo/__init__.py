"""Computing on encrypted numbers.

    import numpy as np
    import torvo

    context = torvo.Context("ST11")
    keys = torvo.keygen(context, rotations=[1, 2, 4])
    with torvo.Evaluator(keys):
        ct = keys.encrypt(np.array([0.5, 0.25, -1.0]))
        result = ct * ct + 1.5
    keys.decrypt(result)

`keys.public()` is what a server gets: everything that computes, and no secret. `torvo.functions` has polynomials,
analysis, statistics, comparisons and sorting; `torvo.learn` runs models of scikit-learn, `torvo.plot` draws, and
`torvo.distributed`, imported by itself, computes on a cluster. Classes with output parameters, as the C++ headers have
them, are here too: `HomEvaluator`, `Encryptor`, `Message` and so on; a `Ciphertext` serves as theirs.

What the library refuses is a `torvo.Error`, with its text; what Python would refuse is a TypeError or a
ValueError.
"""

from . import functions, learn, plot
from ._ciphertext import (
    Ciphertext,
    CiphertextArray,
    add,
    matmul,
    multiply,
    negative,
    power,
    rotate,
    square,
    subtract,
)
from ._evaluator import Evaluator
from ._keys import Keys, PublicKeys, keygen
from ._linear import MatrixCache, matrix_cache, rotations_for
from ._plan import Plan, advise_presets
from ._torvo import (
    Accuracy,
    Bootstrapper,
    BootstrappingEvaluator,
    ChebyshevSeries,
    CompactCiphertext,
    Context,
    Decryptor,
    DeviceType,
    EnDecoder,
    EncodedTransform,
    EncodingType,
    Encryptor,
    Error,
    FileContent,
    FileReport,
    HomEvaluator,
    KeyGenerator,
    KeyPack,
    LinearTransform,
    MatrixProduct,
    Message,
    Order,
    ParameterPreset,
    Plaintext,
    PlanReport,
    PlannedCiphertext,
    Precision,
    PresetAdvice,
    SecretKey,
    SecurityLevel,
    Symmetry,
    TransformOptions,
    Variance,
    compute_lwe_security_level,
    get_seed,
    get_thread_count,
    inspect,
    set_seed,
    set_thread_count,
)

__version__ = "0.1.0"

__all__ = [
    "Accuracy",
    "Bootstrapper",
    "BootstrappingEvaluator",
    "ChebyshevSeries",
    "Ciphertext",
    "CiphertextArray",
    "CompactCiphertext",
    "Context",
    "Decryptor",
    "DeviceType",
    "EnDecoder",
    "EncodedTransform",
    "EncodingType",
    "Encryptor",
    "Error",
    "Evaluator",
    "FileContent",
    "FileReport",
    "HomEvaluator",
    "KeyGenerator",
    "KeyPack",
    "Keys",
    "LinearTransform",
    "MatrixCache",
    "MatrixProduct",
    "Message",
    "Order",
    "ParameterPreset",
    "Plaintext",
    "Plan",
    "PlanReport",
    "PlannedCiphertext",
    "Precision",
    "PresetAdvice",
    "PublicKeys",
    "SecretKey",
    "SecurityLevel",
    "Symmetry",
    "TransformOptions",
    "Variance",
    "add",
    "advise_presets",
    "compute_lwe_security_level",
    "functions",
    "get_seed",
    "get_thread_count",
    "inspect",
    "keygen",
    "learn",
    "matmul",
    "matrix_cache",
    "multiply",
    "negative",
    "plot",
    "power",
    "rotate",
    "rotations_for",
    "set_seed",
    "set_thread_count",
    "square",
    "subtract",
]
