"""What is measured beside what it should be at most."""


class Aims:
    def __init__(self):
        self.rows = []  # (measured, limit, what)

    def add(self, measured, limit, what):
        self.rows.append((measured, limit, what))

    def add_ratio(self, ratio, limit, what):
        self.add(ratio.median, limit, f"{what} ({ratio.range})")

    def print(self):
        print(f"{'measured':>10} {'at most':>10}")
        missed = 0
        for measured, limit, what in self.rows:
            # Judged as printed, so that no line reads "1.25, at most 1.25, missed".
            shown = f"{measured:.0f}" if measured >= 1000 else f"{measured:.2f}"
            is_missed = float(shown) > limit
            missed += is_missed
            print(f"{shown:>10} {limit:>10}  {'MISSED' if is_missed else 'met':6}  {what}")
        print(f"\n{missed} of {len(self.rows)} aims missed")
