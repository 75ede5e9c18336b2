#!/usr/bin/python3
"""Writes tests/data/rnn_fixture.txt: recurrent layers and cells of a deep-learning framework with random
weights, small sizes, and their outputs.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_rnn_fixture.py

Sequence cases run two consecutive calls on one layer, the second starting from the state the first left, so
that carried state is covered. Cell cases run one step with a given state and one from zero state.

File format (whitespace separated):
  case <name> <kind> <in_size> <hidden_size> <num_layers> <bidirectional> <bias> <activation> <steps>
  <key> <count> <count floats>          one line per record
  end
kind is GRU, LSTM, RNN, GRUCell, LSTMCell or RNNCell; activation is 2 (relu) or 5 (tanh) for RNN kinds and
0 otherwise. Sequence records: w_ih_<f|r>_<layer>, w_hh_.., b_ih_.., b_hh_.. (weights in the layer's own
row order), x1 y1 x2 y2 ([steps, in] and [steps, directions*hidden]) and hn (and cn for the LSTM): the state
after both calls, [layers*directions, hidden]. Cell records: w_ih w_hh b_ih b_hh, x h (c), out_h (out_c) for
the given state and zero_h (zero_c) for a zero state.
"""
import os

import torch

torch.manual_seed(20240611)

ACT = {"tanh": 5, "relu": 2}


def row(t):
    return " ".join("%.9g" % v for v in t.detach().flatten().tolist())


def record(lines, key, t):
    lines.append("%s %d %s" % (key, t.numel(), row(t)))


def sequence_case(lines, name, kind, in_size, hidden, layers, bidirectional, bias, steps, nonlinearity="tanh"):
    if kind == "GRU":
        layer = torch.nn.GRU(in_size, hidden, layers, bias=bias, bidirectional=bidirectional)
    elif kind == "LSTM":
        layer = torch.nn.LSTM(in_size, hidden, layers, bias=bias, bidirectional=bidirectional)
    else:
        layer = torch.nn.RNN(in_size, hidden, layers, nonlinearity=nonlinearity, bias=bias,
                             bidirectional=bidirectional)
    act = ACT[nonlinearity] if kind == "RNN" else 0
    lines.append("case %s %s %d %d %d %d %d %d %d" % (name, kind, in_size, hidden, layers, int(bidirectional),
                                                    int(bias), act, steps))
    for l in range(layers):
        for d, suffix in ((0, ""), (1, "_reverse")):
            if d == 1 and not bidirectional:
                continue
            tag = "fr"[d]
            record(lines, "w_ih_%s_%d" % (tag, l), getattr(layer, "weight_ih_l%d%s" % (l, suffix)))
            record(lines, "w_hh_%s_%d" % (tag, l), getattr(layer, "weight_hh_l%d%s" % (l, suffix)))
            if bias:
                record(lines, "b_ih_%s_%d" % (tag, l), getattr(layer, "bias_ih_l%d%s" % (l, suffix)))
                record(lines, "b_hh_%s_%d" % (tag, l), getattr(layer, "bias_hh_l%d%s" % (l, suffix)))
    x1 = torch.randn(steps, 1, in_size)
    x2 = torch.randn(steps, 1, in_size)
    with torch.no_grad():
        y1, state = layer(x1)
        y2, state = layer(x2, state)
    record(lines, "x1", x1)
    record(lines, "y1", y1)
    record(lines, "x2", x2)
    record(lines, "y2", y2)
    if kind == "LSTM":
        record(lines, "hn", state[0])
        record(lines, "cn", state[1])
    else:
        record(lines, "hn", state)
    lines.append("end")


def cell_case(lines, name, kind, in_size, hidden, bias, nonlinearity="tanh"):
    if kind == "GRUCell":
        cell = torch.nn.GRUCell(in_size, hidden, bias=bias)
    elif kind == "LSTMCell":
        cell = torch.nn.LSTMCell(in_size, hidden, bias=bias)
    else:
        cell = torch.nn.RNNCell(in_size, hidden, bias=bias, nonlinearity=nonlinearity)
    act = ACT[nonlinearity] if kind == "RNNCell" else 0
    lines.append("case %s %s %d %d 1 0 %d %d 1" % (name, kind, in_size, hidden, int(bias), act))
    record(lines, "w_ih", cell.weight_ih)
    record(lines, "w_hh", cell.weight_hh)
    if bias:
        record(lines, "b_ih", cell.bias_ih)
        record(lines, "b_hh", cell.bias_hh)
    x = torch.randn(1, in_size)
    h = torch.randn(1, hidden)
    record(lines, "x", x)
    record(lines, "h", h)
    with torch.no_grad():
        if kind == "LSTMCell":
            c = torch.randn(1, hidden)
            record(lines, "c", c)
            out_h, out_c = cell(x, (h, c))
            zero_h, zero_c = cell(x)
            record(lines, "out_h", out_h)
            record(lines, "out_c", out_c)
            record(lines, "zero_h", zero_h)
            record(lines, "zero_c", zero_c)
        else:
            record(lines, "out_h", cell(x, h))
            record(lines, "zero_h", cell(x))
    lines.append("end")


lines = []
sequence_case(lines, "gru_l1", "GRU", 5, 7, 1, False, True, 4)
sequence_case(lines, "gru_l2", "GRU", 6, 5, 2, False, True, 3)
sequence_case(lines, "gru_l2_bi", "GRU", 6, 5, 2, True, True, 3)
sequence_case(lines, "gru_l2_bi_nobias", "GRU", 4, 6, 2, True, False, 3)
sequence_case(lines, "lstm_l1", "LSTM", 5, 6, 1, False, True, 4)
sequence_case(lines, "lstm_l2_bi", "LSTM", 3, 5, 2, True, True, 3)
sequence_case(lines, "rnn_tanh_l2", "RNN", 5, 6, 2, False, True, 4, "tanh")
sequence_case(lines, "rnn_relu_l1_bi", "RNN", 4, 5, 1, True, True, 3, "relu")
sequence_case(lines, "rnn_relu_l2_bi", "RNN", 4, 3, 2, True, True, 3, "relu")
cell_case(lines, "gru_cell", "GRUCell", 5, 6, True)
cell_case(lines, "gru_cell_nobias", "GRUCell", 4, 5, False)
cell_case(lines, "lstm_cell", "LSTMCell", 5, 4, True)
cell_case(lines, "rnn_tanh_cell", "RNNCell", 6, 5, True, "tanh")
cell_case(lines, "rnn_relu_cell", "RNNCell", 6, 5, True, "relu")

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "rnn_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
