#!/usr/bin/env python3
"""Makes golden.json: what the model's publisher's own software answers for some texts.

Run by hand when the model changes, never by the build:

    python3 -m venv venv && venv/bin/pip install tokenizers onnxruntime numpy
    venv/bin/python tests/Embedding/make_golden.py .deps/models/embedding tests/Embedding/golden.json

Token numbers come from the `tokenizers` library reading the model's tokenizer.json, at most 256 of
them, no padding. Vectors come from `onnxruntime` running model.onnx on one text at a time: the mean
of the last hidden states over all tokens, scaled to length 1. They are stored with 5 decimals.
"""
import json
import sys

import numpy
import onnxruntime
import tokenizers

TEXTS = [
    "hello",
    "",
    " \t\r\n  ",
    "The quick brown fox jumps over the lazy dog.",
    "Ana Torres. Budget review for the second quarter. Can you send me the figures by Thursday?",
    "Crème brûlée à la carte, naïve façade, Übergrößenträger, smørrebrød, İstanbul, piñata",
    "e\u0301 and \u00e9, A\u030a and \u00c5: the same letters composed and decomposed",
    "会议将于明天下午三点开始，请准时参加。",
    "東京タワーへ行きましょう! 한국어 문장도 있습니다.",
    "Привет, как дела? Καλημέρα κόσμε. مرحبا بالعالم שלום עולם",
    "👩‍👩‍👧‍👦 family 🎉🎉 party 🇩🇪 flag ❤️ heart",
    "for (int i = 0; i < n; ++i) { sum += a[i] * b[i]; } // O(n)\n#include <vector>",
    "SELECT e.id FROM events e WHERE e.ts > ?1 AND e.app = 'Mail';",
    "https://example.org/a/b?query=one%20two&x=3#part user.name+tag@example.com",
    "Donaudampfschifffahrtsgesellschaftskapitän antidisestablishmentarianism",
    "x" * 100 + " " + "y" * 101 + " after",
    "[CLS] literal [SEP] tokens [MASK] in the [UNK] text [PAD][sep]",
    "zero\u200bwidth \u00adsoft\u00adhyphen \ufeffmark \x07bell \ufffd end",
    "1,234.56 € + 7% = $8; ½ ² ™ © № — “quotes” ‘single’ … •",
    "Z̷̢̛͙͖a̵̡͝l̸̰͘g̵͓̾o̶͜ t̸e̷x̶t",
    "Notes of the meeting. " + "We agreed to move the release by a week, since two tests fail on "
    "the older machines; Maria writes to the customers and Tom looks at the logs. " * 4,
    ("Paragraph about gardens, rivers and mountains: the river bends, the path climbs, and "
     "the village sleeps under snow. " * 20)[:1200],
    "ab " * 400,
    "漢字" * 300,
]


def main(model_folder, output):
    tokenizer = tokenizers.Tokenizer.from_file(f"{model_folder}/tokenizer.json")
    tokenizer.no_padding()
    tokenizer.enable_truncation(256)
    session = onnxruntime.InferenceSession(f"{model_folder}/model.onnx")
    cases = []
    for text in TEXTS:
        ids = tokenizer.encode(text).ids
        feed = numpy.array([ids], dtype=numpy.int64)
        states = session.run(None, {"input_ids": feed, "attention_mask": numpy.ones_like(feed),
                                    "token_type_ids": numpy.zeros_like(feed)})[0][0]
        mean = states.astype(numpy.float64).mean(axis=0)
        vector = mean / numpy.linalg.norm(mean)
        cases.append({"text": text, "ids": ids, "vector": [round(float(x), 5) for x in vector]})
    with open(output, "w", encoding="ascii") as file:
        file.write("[\n" + ",\n".join(json.dumps(case) for case in cases) + "\n]\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
