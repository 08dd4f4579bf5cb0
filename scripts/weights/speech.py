"""Makes the speech recogniser's weights: speech.py FOLDER OUT

FOLDER holds encoder_model.ort, decoder_model_merged.ort and tokenizer.bin as published. Their
weights are 8-bit integers that every step turns back into numbers with three operators each, which
costs four times the arithmetic itself. Here those operators are folded into plain weights, once,
and the multiplications quantised dynamically instead, so that they run on integers.
"""

import base64
import logging
import sys
import tempfile
from pathlib import Path

import numpy
import onnx
import onnxruntime
from onnx import numpy_helper
from onnxruntime.quantization import QuantType, quantize_dynamic

GRAPHS = ("encoder_model", "decoder_model_merged")


def save_as_onnx(source, target):
    """Only the unoptimised graph is free of operators that the library knows alone."""
    options = onnxruntime.SessionOptions()
    options.optimized_model_filepath = str(target)
    options.add_session_config_entry("session.save_model_format", "ONNX")
    options.graph_optimization_level = onnxruntime.GraphOptimizationLevel.ORT_DISABLE_ALL
    onnxruntime.InferenceSession(str(source), options, providers=["CPUExecutionProvider"])


def graphs_of(graph):
    """The graph and those inside its nodes."""
    yield graph
    for node in graph.node:
        for attribute in node.attribute:
            if attribute.type == onnx.AttributeProto.GRAPH:
                yield from graphs_of(attribute.g)


def name_graphs(model):
    model.graph.name = model.graph.name or "main"
    for graph in graphs_of(model.graph):
        for node in graph.node:
            for attribute in node.attribute:
                if attribute.type == onnx.AttributeProto.GRAPH:
                    attribute.g.name = attribute.name
    known = [opset for opset in model.opset_import if opset.domain in ("", "com.microsoft")]
    del model.opset_import[:]
    model.opset_import.extend(known)


def fold_weights(graph):
    """Replaces every Cast, Mul, Add chain over a constant by its result."""
    constants = {constant.name: constant for constant in graph.initializer}
    values, folded = {}, []
    for node in graph.node:
        if node.op_type == "Cast" and node.input[0] in constants:
            to_float = any(a.name == "to" and a.i == onnx.TensorProto.FLOAT for a in node.attribute)
            value = numpy_helper.to_array(constants[node.input[0]])
            values[node.output[0]] = value.astype(numpy.float32 if to_float else numpy.int64)
        elif node.op_type in ("Mul", "Add") and node.input[0] in values and node.input[1] in constants:
            left, right = values.pop(node.input[0]), numpy_helper.to_array(constants[node.input[1]])
            result = left * right if node.op_type == "Mul" else left + right
            values[node.output[0]] = result.astype(numpy.float32)
        else:
            continue
        folded.append(node)
    for node in folded:
        graph.node.remove(node)
    for name, value in values.items():
        graph.initializer.append(numpy_helper.from_array(numpy.ascontiguousarray(value), name))


def fold_transposes(graph):
    """The last multiplication uses the token vectors turned over; as a constant it can be
    quantised too."""
    constants = {constant.name: constant for constant in graph.initializer}
    added = set()
    for inner in graphs_of(graph):
        for node in list(inner.node):
            if node.op_type != "Transpose" or node.input[0] not in constants:
                continue
            order = [list(a.ints) for a in node.attribute if a.name == "perm"]
            if node.output[0] not in added:
                value = numpy_helper.to_array(constants[node.input[0]])
                turned = numpy.ascontiguousarray(value.transpose(order[0] if order else None))
                graph.initializer.append(numpy_helper.from_array(turned, node.output[0]))
                added.add(node.output[0])
            inner.node.remove(node)


def drop_unused(graph):
    used = {output.name for output in graph.output}
    for inner in graphs_of(graph):
        used.update(name for node in inner.node for name in node.input)
    kept = [constant for constant in graph.initializer if constant.name in used]
    del graph.initializer[:]
    graph.initializer.extend(kept)


def convert(source, target, scratch):
    plain, folded = scratch / f"{source.stem}.onnx", scratch / f"{source.stem}.folded.onnx"
    save_as_onnx(source, plain)
    model = onnx.load(plain)
    name_graphs(model)
    fold_weights(model.graph)
    fold_transposes(model.graph)
    drop_unused(model.graph)
    onnx.save(model, folded)
    quantize_dynamic(folded, target, weight_type=QuantType.QInt8, per_channel=True,
                     op_types_to_quantize=["MatMul", "Gather"],
                     extra_options={"EnableSubgraph": True, "MatMulConstBOnly": True})


def write_tokens(source, target):
    """Each token of the source follows its length in one byte or, from 128 on, in two."""
    data, lines, at = source.read_bytes(), [], 0
    while at < len(data):
        length = data[at]
        at += 1
        if length >= 128:
            length += data[at] * 128 - 128
            at += 1
        lines.append(b"%s %d\n" % (base64.b64encode(data[at:at + length]), len(lines)))
        at += length
    target.write_bytes(b"".join(lines))


def main():
    logging.disable(logging.WARNING)
    source, target = Path(sys.argv[1]), Path(sys.argv[2])
    with tempfile.TemporaryDirectory(dir=target) as scratch:
        for graph in GRAPHS:
            convert(source / f"{graph}.ort", target / f"{graph}.onnx", Path(scratch))
    write_tokens(source / "tokenizer.bin", target / "tokens.txt")


main()
