"""judge_run.py TEXTSEARCH WORDS COLLECTION: indexes a collection with textsearch, writes runs, and judges each line
by the formulas of docs/search.md.  Shares nothing with the library but the two lists of words."""
import json, math, os, random, re, subprocess, sys, tempfile
from collections import Counter

program, words, collection = sys.argv[1:]
read = lambda path: open(path, encoding="latin-1").read().lower().split()
stopwords, irregular = set(read(words + "/EnglishStopwords")), {}
for token in read(words + "/EnglishSubstitutions"):
    if token[0] == "\xa5":
        stem = token[1:]
    else:
        irregular[token] = stem
STEMS = {"mailboxes": "mailbox", "letters": "letter", "boxes": "box", "office": "offic", "sorts": "sort",
         "sorted": "sort", "sorting": "sort", "coffee": "coffe"}

def terms(text):
    kept = [w for w in re.findall("[a-z0-9]+", text.lower()) if w not in stopwords]
    return Counter(STEMS.get(irregular.get(w, w), irregular.get(w, w)) for w in kept)

def judged(docs, query, bm25):
    counts = {name: terms(text) for name, text in docs.items()}
    with_term = Counter(t for c in counts.values() for t in c)
    scale = {t: 1 + math.log(len(docs) / n) for t, n in with_term.items()}
    norm = {d: min(math.trunc(math.sqrt(4 * sum(c.values()))) + 1, 255) for d, c in counts.items()}
    average = sum(norm.values()) / len(norm)
    length = {d: ((n - 0.5) / 2) ** 2 for d, n in norm.items()}
    weights = {t: scale[t] * math.log(f + 1) for t, f in terms(query).items() if t in scale}
    size = math.sqrt(sum(w * w for w in weights.values()))
    power = lambda t: weights[t] * scale[t] * math.log(max(c[t] for c in counts.values()) + 1)
    n = len(weights)
    keep = n if n <= 10 else 50 if n > 100 else int(n - (n - 10) ** 2 / 160)
    q = {t: weights[t] / size for t in sorted(sorted(weights), key=power, reverse=True)[:keep]}
    scores = {}
    for d, c in counts.items():
        found = [t for t in q if t in c]
        if bm25:
            idf = lambda t: math.log(1 + (len(docs) - with_term[t] + 0.5) / (with_term[t] + 0.5))
            relative = length[d] / (sum(length.values()) / len(docs))
            score = sum(q[t] / scale[t] * idf(t) * 2.2 * c[t] / (c[t] + 1.2 * (0.25 + 0.75 * relative)) for t in found)
        else:
            score = sum(scale[t] * math.log(c[t] + 1) * q[t] for t in found) / (0.55 * norm[d] / average + 0.45)
            score = (len(found) - 1) / (len(q) - 0.5) ** 2 + score / average
        if found:
            scores[d] = score
    return {d: s / max(scores.values()) for d, s in scores.items()}

def judge(files, topic_file, docs, topics):
    index = os.path.join(tempfile.mkdtemp(), "index")
    subprocess.run([program, "--words", words, "index", index, *files], check=True, stdout=subprocess.DEVNULL)
    for bm25 in (False, True):
        options = ["--bm25"] if bm25 else []
        run = subprocess.run([program, "--words", words, *options, "run", index, topic_file, "--tag", "t"],
                             check=True, capture_output=True, text=True).stdout
        lines = [line.split(" ") for line in run.splitlines()]
        for topic, query in topics.items():
            expected = judged(docs, query, bm25)
            mine = [line for line in lines if line[0] == topic]
            assert {line[2] for line in mine} == set(expected), (topic, mine, expected)
            for place, (_, q0, doc, rank, score, tag) in enumerate(mine, 1):
                assert (q0, rank, tag) == ("Q0", str(place), "t"), mine[place - 1]
                assert abs(float(score) - expected[doc]) < 2e-5, (topic, doc, score, expected[doc])
            assert all(float(a[4]) >= float(b[4]) for a, b in zip(mine, mine[1:]))
        assert len(lines) == sum(len(judged(docs, query, bm25)) for query in topics.values()) > 2

judge([collection + "/documents.sgml", collection + "/documents.jsonl"], collection + "/topics.sgml",
      {"A-1": "Mail in boxes The mailboxes held old mail, and 3 4 letters.", "A-2": "The post office sorts mail.",
       "J-1": "Caf news Boxes of coffee and sorted letters"}, {"7": "sorting mail", "8": "coffee"})
random.seed(1)  # words that have no ending, some rare and some frequent, in texts of very different lengths
text = lambda most: " ".join("w%d" % int(random.paretovariate(0.4)) for _ in range(random.randint(1, most)))
docs = {"d%03d" % i: text(8 << i % 6) for i in range(300)}
topics = {str(i): text(4 << i % 6) for i in range(30)}
folder = tempfile.mkdtemp()
for name, items in (("docs", docs), ("topics", topics)):
    with open(f"{folder}/{name}.jsonl", "w") as out:
        out.writelines(json.dumps({"id": i, "text": t}) + "\n" for i, t in items.items())
judge([folder + "/docs.jsonl"], folder + "/topics.jsonl", docs, topics)
print("all lines as the formulas say")
